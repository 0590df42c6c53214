#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <variant>

#include "base/container.h"
#include "support/rows.h"

#ifdef HAVE_QT
#include <QString>
#include <QVariant>
#endif
#ifdef HAVE_POCO
#include <Poco/Dynamic/Var.h>
#endif
#ifdef HAVE_GOBJECT
#include <glib-object.h>
#endif

namespace bench {
namespace {

using tevalon::base::container::CommonValue;

// The same four things with each peer: a value made of an int, copied, asked for its int, and
// for its text. Google Benchmark is given values, not lvalues: GCC 12 miscompiles those.
constexpr int kNumber = 123456;

template <typename Value>
Value makeNumber() {
    int number = kNumber;
    benchmark::DoNotOptimize(number += 0);
    return Value(number);
}

template <typename Value>
void construct(benchmark::State& state) {
    int number = kNumber;
    for (auto _ : state) {
        Value value(number++);
        benchmark::DoNotOptimize(&value);
        benchmark::ClobberMemory();
    }
}

template <typename Value>
void copy(benchmark::State& state) {
    const Value original = makeNumber<Value>();
    for (auto _ : state) {
        Value value(original);
        benchmark::DoNotOptimize(&value);
        benchmark::ClobberMemory();
    }
}

template <typename Value, typename Convert>
void convert(benchmark::State& state, Convert convertOne) {
    Value value = makeNumber<Value>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(&value);
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(convertOne(value));
    }
}

template <typename Value, typename ToInt, typename ToText>
void addValueRows(const char* peer, ToInt toInt, ToText toText) {
    addRow("values/construct", peer, construct<Value>);
    addRow("values/copy", peer, copy<Value>);
    addRow("values/to_int", peer,
           [toInt](benchmark::State& state) { convert<Value>(state, toInt); });
    addRow("values/to_text", peer,
           [toText](benchmark::State& state) { convert<Value>(state, toText); });
}

int oursToInt(const CommonValue& value) {
    return value;
}
std::string oursToText(const CommonValue& value) {
    return value.convertToStringType();
}

using Variant = std::variant<int, unsigned, short, unsigned short, long long, unsigned long long,
                             bool, float, double, std::string>;

struct ToInt {
    int operator()(const std::string&) const { return 0; }
    template <typename Number>
    int operator()(Number number) const {
        return static_cast<int>(number);
    }
};
struct ToText {
    std::string operator()(const std::string& text) const { return text; }
    template <typename Number>
    std::string operator()(Number number) const {
        return std::to_string(number);
    }
};
int variantToInt(const Variant& value) {
    return std::visit(ToInt(), value);
}
std::string variantToText(const Variant& value) {
    return std::visit(ToText(), value);
}

#ifdef HAVE_QT
int qtToInt(const QVariant& value) {
    return value.toInt();
}
QString qtToText(const QVariant& value) {
    return value.toString();
}
#endif

#ifdef HAVE_POCO
int pocoToInt(const Poco::Dynamic::Var& value) {
    return value.convert<int>();
}
std::string pocoToText(const Poco::Dynamic::Var& value) {
    return value.toString();
}
#endif

#ifdef HAVE_GOBJECT
class GObjectValue {
public:
    explicit GObjectValue(int number) {
        g_value_init(&m_value, G_TYPE_INT);
        g_value_set_int(&m_value, number);
    }
    GObjectValue(const GObjectValue& other) {
        g_value_init(&m_value, G_VALUE_TYPE(&other.m_value));
        g_value_copy(&other.m_value, &m_value);
    }
    ~GObjectValue() { g_value_unset(&m_value); }
    GObjectValue& operator=(const GObjectValue&) = delete;

    // It is asked for what it holds, as its users do.
    int toInt() const { return g_value_get_int(&m_value); }

    std::string toText() const {
        GValue text = G_VALUE_INIT;
        g_value_init(&text, G_TYPE_STRING);
        g_value_transform(&m_value, &text);
        std::string result = g_value_get_string(&text);
        g_value_unset(&text);
        return result;
    }

private:
    GValue m_value = G_VALUE_INIT;
};
int gobjectToInt(const GObjectValue& value) {
    return value.toInt();
}
std::string gobjectToText(const GObjectValue& value) {
    return value.toText();
}
#endif

const bool s_areRowsAdded = [] {
    addValueRows<CommonValue>(kOurs, oursToInt, oursToText);
    addValueRows<Variant>("std::variant", variantToInt, variantToText);
#ifdef HAVE_QT
    addValueRows<QVariant>("Qt", qtToInt, qtToText);
#endif
#ifdef HAVE_POCO
    addValueRows<Poco::Dynamic::Var>("POCO", pocoToInt, pocoToText);
#endif
#ifdef HAVE_GOBJECT
    addValueRows<GObjectValue>("GLib", gobjectToInt, gobjectToText);
#endif
    return true;
}();

}  // namespace
}  // namespace bench
