#include "memory_summary.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace tv_browser {
namespace {

std::optional<std::uint64_t> mebibytes(const std::string& meminfo, const std::string& field) {
    const std::size_t line = ("\n" + meminfo).find("\n" + field + ":");
    if (line == std::string::npos) return std::nullopt;
    std::uint64_t kibibytes = 0;
    const char* p_value = meminfo.c_str() + line + field.size() + 1;
    if (std::sscanf(p_value, "%" SCNu64 " kB", &kibibytes) != 1) return std::nullopt;
    return kibibytes / 1024;
}

}  // namespace

std::string summariseMemory(const std::string& meminfo) {
    const auto total = mebibytes(meminfo, "MemTotal");
    const auto available = mebibytes(meminfo, "MemAvailable");
    if (!total || !available) return "";
    return "finds " + std::to_string(*total) + " MiB of memory, " + std::to_string(*available) +
           " MiB available";
}

}  // namespace tv_browser
