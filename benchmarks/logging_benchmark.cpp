// Log statements that are off, and that are on and write to /dev/null. An iteration is one
// statement, or one dump. Ours writes each line at once; peers are measured doing that, and
// keeping lines in a buffer.

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/logging.h"
#include "loggers/all.h"
#include "support/placement.h"
#include "support/rows.h"

namespace bench {
namespace {

template <typename Logger>
void off(benchmark::State& state) {
    const Placement placement(Cpus::One);
    placement.forSenders();
    Logger logger(Prefix::None, Flush::EachLine);
    int number = 0;
    for (auto _ : state) {
        logger.off(++number);
        benchmark::ClobberMemory();  // Each time anew: the level may have changed.
    }
}

template <typename Logger>
void writeLines(Logger* p_logger, std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) p_logger->on(static_cast<int>(i));
}

template <typename Logger>
void on(benchmark::State& state, Prefix prefix, Flush flush) {
    const Placement placement(Cpus::One);
    placement.forSenders();
    Logger logger(prefix, flush);
    int number = 0;
    for (auto _ : state) logger.on(++number);
}

template <typename Logger>
void onFromThreads(benchmark::State& state, int count, Flush flush, std::int64_t lines) {
    Logger logger(Prefix::None, flush);
    while (state.KeepRunningBatch(lines)) {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&] { writeLines(&logger, lines / count); });
        }
        for (std::thread& thread : threads) thread.join();
    }
}

template <typename Logger>
void addRowsOf() {
    constexpr int kThreads = 4;
    const std::int64_t lines = scaled(400000);
    addRow("logging/off/one_cpu", Logger::kName, off<Logger>);
    for (const Flush flush : {Flush::EachLine, Flush::Never}) {
        const std::string task =
            flush == Flush::EachLine ? "logging/on_flushed/" : "logging/on_buffered/";
        addRow(task + "1_thread/one_cpu", Logger::kName,
               [=](benchmark::State& state) { on<Logger>(state, Prefix::None, flush); });
        addRow(task + "4_threads/unpinned", Logger::kName, [=](benchmark::State& state) {
            onFromThreads<Logger>(state, kThreads, flush, lines);
        })->Iterations(lines);
    }
    addRow(
        "logging/on_time_thread_prefix/1_thread/one_cpu", Logger::kName,
        [](benchmark::State& state) { on<Logger>(state, Prefix::TimeAndThread, Flush::EachLine); });
}

void oneBareCall(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(bareCall(&state));
}

// One as the scope is entered, one as it is left.
void twoBareCalls(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(bareCall(&state));
        benchmark::DoNotOptimize(bareCall(&state));
    }
}

void functionTracer(benchmark::State& state) {
    for (auto _ : state) {
        const tevalon::base::FunctionTracer tracer(__func__, __FILE__, __LINE__);
        benchmark::ClobberMemory();
    }
}

void scopeTrace(benchmark::State& state) {
    for (auto _ : state) {
        BLOG_TRACE_SCOPE();
        benchmark::ClobberMemory();
    }
}

std::vector<unsigned char> bytesToDump() {
    std::vector<unsigned char> bytes(4096);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 7);
    return bytes;
}

void dump(benchmark::State& state, const char* levels) {
    const OurLogger logger(Prefix::None, Flush::EachLine, levels);
    const std::vector<unsigned char> bytes = bytesToDump();
    for (auto _ : state) dump_memory("dump", bytes.data(), static_cast<int>(bytes.size()));
}

// As many writes, of as many bytes, as a dump takes: its title, and a line for each 16 bytes.
void bareDump(benchmark::State& state) {
    constexpr std::string_view kTitle = "[]:0::DUMPMEM(075BCD15d):, dump\n";
    constexpr std::string_view kLine =
        "[]:0::DUMPMEM(075BCD15d):, 00 07 0E 15 1C 23 2A 31 38 3F 46 4D 54 5B 62 69 \n";
    const int file = open("/dev/null", O_WRONLY | O_APPEND | O_CLOEXEC);
    const std::size_t lines = bytesToDump().size() / 16;
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(file, kTitle.data(), kTitle.size()));
        for (std::size_t i = 0; i < lines; ++i) {
            benchmark::DoNotOptimize(write(file, kLine.data(), kLine.size()));
        }
    }
    (void)close(file);
}

void addTraceRows() {
    addRow("logging/off_function_tracer", kOurs, functionTracer);
    addRow("logging/off_function_tracer", kLimit, twoBareCalls);
    addRow("logging/off_scope_trace", kOurs, scopeTrace);
    addRow("logging/off_scope_trace", kLimit, twoBareCalls);
}

void addDumpRows() {
    addRow("logging/dump_4_KiB_off", kOurs, [](benchmark::State& state) { dump(state, "off"); });
    addRow("logging/dump_4_KiB_off", kLimit, oneBareCall);
    addRow("logging/dump_4_KiB_on", kOurs, [](benchmark::State& state) { dump(state, "debug"); });
    addRow("logging/dump_4_KiB_on", kLimit, bareDump);
#ifdef HAVE_SPDLOG
    addRow("logging/dump_4_KiB_on", SpdlogLogger::kName, [](benchmark::State& state) {
        SpdlogLogger logger(Prefix::None, Flush::EachLine);
        const std::vector<unsigned char> bytes = bytesToDump();
        for (auto _ : state) logger.dump(bytes);
    });
#endif
}

const bool s_areRowsAdded = [] {
    forEachLogger([](auto logger) { addRowsOf<typename decltype(logger)::type>(); });
    addTraceRows();
    addDumpRows();
    return true;
}();

}  // namespace
}  // namespace bench
