// Programs that assign, copy, move, nest, compare and convert values, beside a plain variant.

#include "base/container/common_value.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "support/expect.h"
#include "support/input.h"

namespace {

using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;

struct Undefined {};
struct Null {};
struct Model;
using Models = std::vector<Model>;
using Content =
    std::variant<Undefined, Null, int, unsigned int, short, unsigned short, long long,
                 unsigned long long, bool, float, double, std::string, std::pair<int, int>, Models>;

struct Model {
    Content content;
};

template <typename T>
constexpr bool kIsInteger = std::is_integral_v<T> && !std::is_same_v<T, bool>;

template <typename T>
constexpr bool kIsNumber = kIsInteger<T> || std::is_floating_point_v<T>;

CommonValue::Type typeOf(const Model& model) {
    constexpr CommonValue::Type kTypes[] = {
        CommonValue::kUndefined, CommonValue::kNull,      CommonValue::kInt,
        CommonValue::kUInt,      CommonValue::kShort,     CommonValue::kUShort,
        CommonValue::kLongLong,  CommonValue::kULongLong, CommonValue::kBool,
        CommonValue::kFloat,     CommonValue::kDouble,    CommonValue::kString,
        CommonValue::kPoint,     CommonValue::kArray};
    return kTypes[model.content.index()];
}

// Towards zero, ending at the limits. A long double holds every integer and every double exactly.
template <typename Integer>
Integer limited(long double value) {
    if (std::isnan(value)) return 0;
    const long double cut = std::trunc(value);
    if (cut < static_cast<long double>(std::numeric_limits<Integer>::min())) {
        return std::numeric_limits<Integer>::min();
    }
    if (cut > static_cast<long double>(std::numeric_limits<Integer>::max())) {
        return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(cut);
}

// The 16-bit integers are the low half of the 32-bit ones.
template <typename Integer>
using Limiting =
    std::conditional_t<sizeof(Integer) == 2,
                       std::conditional_t<std::is_signed_v<Integer>, int, unsigned int>, Integer>;

template <typename Integer>
Integer integerOf(const Model& model) {
    return std::visit(
        [](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_integral_v<T>) {
                return static_cast<Integer>(value);
            } else if constexpr (std::is_floating_point_v<T>) {
                return static_cast<Integer>(
                    limited<Limiting<Integer>>(static_cast<long double>(value)));
            } else {
                return Integer{0};
            }
        },
        model.content);
}

template <typename Floating>
Floating floatingOf(const Model& model) {
    return std::visit(
        [](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_arithmetic_v<T>) {
                return static_cast<Floating>(value);
            } else {
                return Floating{0};
            }
        },
        model.content);
}

bool truthOf(const Model& model) {
    return std::visit(
        [](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_arithmetic_v<T>) {
                return value != T{0};
            } else {
                return false;
            }
        },
        model.content);
}

std::string textOf(const Model& model);

struct Writer {
    std::string operator()(Undefined) const { return "Undefined"; }
    std::string operator()(Null) const { return "null"; }
    std::string operator()(bool value) const { return value ? "TRUE" : "FALSE"; }
    std::string operator()(const std::string& value) const { return value; }
    std::string operator()(const std::pair<int, int>& value) const {
        return "(" + std::to_string(value.first) + "," + std::to_string(value.second) + ")";
    }
    std::string operator()(const Models& values) const {
        std::string text = "[";
        for (std::size_t i = 0; i < values.size(); ++i) {
            text += (i == 0 ? "" : ",") + textOf(values[i]);
        }
        return text + "]";
    }
    template <typename Number>
    std::string operator()(Number value) const {
        std::ostringstream out;
        out << value;
        return out.str();
    }
};

std::string textOf(const Model& model) {
    return std::visit(Writer{}, model.content);
}

bool areEqual(const Model& left, const Model& right) {
    return std::visit(
        [](const auto& one, const auto& other) {
            using One = std::decay_t<decltype(one)>;
            using Other = std::decay_t<decltype(other)>;
            if constexpr (kIsNumber<One> && kIsNumber<Other>) {
                return static_cast<long double>(one) == static_cast<long double>(other);
            } else if constexpr (!std::is_same_v<One, Other>) {
                return false;
            } else if constexpr (std::is_same_v<One, Models>) {
                if (one.size() != other.size()) return false;
                for (std::size_t i = 0; i < one.size(); ++i) {
                    if (!areEqual(one[i], other[i])) return false;
                }
                return true;
            } else if constexpr (std::is_same_v<One, Undefined> || std::is_same_v<One, Null>) {
                return true;
            } else {
                return one == other;
            }
        },
        left.content, right.content);
}

// A string or an array that is moved from is left empty, of the same kind.
Model moved(Model* p_from) {
    Model result = *p_from;
    if (auto* p_text = std::get_if<std::string>(&p_from->content)) p_text->clear();
    if (auto* p_array = std::get_if<Models>(&p_from->content)) p_array->clear();
    return result;
}

std::size_t weightOf(const Model& model) {
    std::size_t weight = 1;
    if (const auto* p_text = std::get_if<std::string>(&model.content)) weight += p_text->size();
    if (const auto* p_array = std::get_if<Models>(&model.content)) {
        for (const Model& element : *p_array) weight += weightOf(element);
    }
    return weight;
}

struct Pair {
    CommonValue value;
    Model model;
};

template <typename T>
bool isSame(T one, T other) {
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(one) && std::isnan(other)) return true;
    }
    return one == other;
}

void compareConversions(const CommonValue& value, const Model& model) {
    fuzz::expectEqual(static_cast<int>(value.type()), static_cast<int>(typeOf(model)), "the kind");
    fuzz::expectEqual(value.convertToStringType(), textOf(model), "the text");
    fuzz::expectEqual(static_cast<std::string>(value), textOf(model), "the string");
    fuzz::expectEqual(static_cast<bool>(value), truthOf(model), "the bool");
    fuzz::expectEqual(static_cast<short>(value), integerOf<short>(model), "the short");
    fuzz::expectEqual(static_cast<unsigned short>(value), integerOf<unsigned short>(model),
                      "the unsigned short");
    fuzz::expectEqual(static_cast<int>(value), integerOf<int>(model), "the int");
    fuzz::expectEqual(static_cast<unsigned int>(value), integerOf<unsigned int>(model),
                      "the unsigned int");
    fuzz::expectEqual(static_cast<long long>(value), integerOf<long long>(model), "the long long");
    fuzz::expectEqual(static_cast<unsigned long long>(value), integerOf<unsigned long long>(model),
                      "the unsigned long long");
    fuzz::expect(isSame(static_cast<float>(value), floatingOf<float>(model)), "the float");
    fuzz::expect(isSame(static_cast<double>(value), floatingOf<double>(model)), "the double");
    const auto point = static_cast<Point>(value);
    const auto* p_point = std::get_if<std::pair<int, int>>(&model.content);
    const std::pair<int, int> expected = p_point != nullptr ? *p_point : std::pair<int, int>();
    fuzz::expect(point.x == expected.first && point.y == expected.second, "the point");
}

void compareVectors(const CommonValue& value, const Model& model) {
    const auto* p_array = std::get_if<Models>(&model.content);
    const Models elements = p_array != nullptr ? *p_array : Models{model};
    std::vector<unsigned int> numbers;
    std::vector<std::string> texts;
    for (const Model& element : elements) {
        numbers.push_back(integerOf<unsigned int>(element));
        texts.push_back(textOf(element));
    }
    fuzz::expectEqual(static_cast<std::vector<unsigned int>>(value), numbers, "the numbers");
    fuzz::expectEqual(static_cast<std::vector<std::string>>(value), texts, "the texts");
}

void compare(const CommonValue& value, const Model& model) {
    compareConversions(value, model);
    compareVectors(value, model);
    const auto* p_array = std::get_if<Models>(&model.content);
    const std::size_t size = p_array != nullptr ? p_array->size() : 0;
    fuzz::expectEqual(value.size(), size, "the size");
    fuzz::expect(value[size].type() == CommonValue::kUndefined, "an element that is not there");
    for (std::size_t i = 0; i < size; ++i) compare(value[i], (*p_array)[i]);
}

template <typename T>
void assign(fuzz::Input* p_input, Pair* p_pair) {
    const auto value = p_input->number<T>();
    if (p_input->flag()) {
        p_pair->value = value;
    } else {
        p_pair->value = CommonValue(value);
    }
    p_pair->model.content = value;
}

template <typename T>
void assignLong(fuzz::Input* p_input, Pair* p_pair) {
    using Same = std::conditional_t<sizeof(T) == 4, std::make_unsigned_t<int>, unsigned long long>;
    using Kind = std::conditional_t<std::is_signed_v<T>, std::make_signed_t<Same>, Same>;
    const auto value = p_input->number<T>();
    p_pair->value = value;
    p_pair->model.content = static_cast<Kind>(value);
}

// Values that are equal across kinds, or nearly so, are rare among random bits.
void assignSmall(fuzz::Input* p_input, Pair* p_pair) {
    const int small = int{p_input->byte()} - 128;
    const auto power = std::ldexp(1.0, static_cast<int>(p_input->below(66)));
    switch (p_input->below(6)) {
        case 0:
            p_pair->value = power + small;
            p_pair->model.content = power + small;
            break;
        case 1:
            p_pair->value = static_cast<float>(power);
            p_pair->model.content = static_cast<float>(power);
            break;
        case 2: {
            const auto value =
                static_cast<unsigned long long>(small) + limited<unsigned long long>(power);
            p_pair->value = value;
            p_pair->model.content = value;
            break;
        }
        case 3: {
            const auto value = static_cast<long long>(static_cast<unsigned long long>(small) -
                                                      limited<unsigned long long>(power));
            p_pair->value = value;
            p_pair->model.content = value;
            break;
        }
        case 4:
            p_pair->value = small;
            p_pair->model.content = small;
            break;
        default:
            p_pair->value = static_cast<short>(small);
            p_pair->model.content = static_cast<short>(small);
    }
}

void assignScalar(fuzz::Input* p_input, Pair* p_pair) {
    using Assign = void (*)(fuzz::Input*, Pair*);
    constexpr Assign kAssigns[] = {
        assign<int>,       assign<unsigned int>,       assign<short>, assign<unsigned short>,
        assign<long long>, assign<unsigned long long>, assign<float>, assign<double>,
        assignLong<long>,  assignLong<unsigned long>,  assignSmall,   assignSmall};
    const std::size_t kind = p_input->below(std::size(kAssigns) + 2);
    if (kind < std::size(kAssigns)) {
        kAssigns[kind](p_input, p_pair);
    } else if (kind == std::size(kAssigns)) {
        const bool value = p_input->flag();
        p_pair->value = value;
        p_pair->model.content = value;
    } else {
        *p_pair = p_input->flag() ? Pair{CommonValue::null(), {Null{}}} : Pair();
    }
}

void assignOther(fuzz::Input* p_input, Pair* p_pair) {
    if (p_input->flag()) {
        const std::string text = p_input->text(40);
        p_pair->value = text;
        p_pair->model.content = text;
    } else {
        const auto x = p_input->number<int>();
        const auto y = p_input->number<int>();
        p_pair->value = Point{x, y};
        p_pair->model.content = std::pair<int, int>(x, y);
    }
}

using Registers = std::array<Pair, 5>;

void nest(fuzz::Input* p_input, Registers* p_registers, Pair* p_target) {
    CommonValue::Array array;
    Models models;
    for (std::size_t i = p_input->below(5); i > 0; --i) {
        const Pair& element = (*p_registers)[p_input->below(p_registers->size())];
        array.push_back(element.value);
        models.push_back(element.model);
    }
    const Model model = {std::move(models)};
    if (weightOf(model) > 600) return;
    if (p_input->flag()) {
        p_target->value = CommonValue(std::move(array));
    } else {
        p_target->value = array;
    }
    p_target->model = model;
}

// Also from itself, or from an element of its own.
void transfer(fuzz::Input* p_input, Pair* p_from, Pair* p_to) {
    switch (p_input->below(6)) {
        case 0: {
            const CommonValue& from = p_from->value;
            p_to->value = from;
            p_to->model = Model(p_from->model);
            break;
        }
        case 1:
            if (p_from == p_to) break;
            p_to->value = std::move(p_from->value);
            p_to->model = moved(&p_from->model);
            break;
        case 2: {
            const CommonValue copy(p_from->value);
            compare(copy, p_from->model);
            p_to->value = copy;
            p_to->model = Model(p_from->model);
            break;
        }
        case 3: {
            CommonValue taken(std::move(p_from->value));
            const Model model = moved(&p_from->model);
            compare(taken, model);
            compare(p_from->value, p_from->model);
            p_to->value = std::move(taken);
            p_to->model = model;
            break;
        }
        default: {
            const std::size_t index = p_input->below(4);
            const auto* p_array = std::get_if<Models>(&p_from->model.content);
            const bool isThere = p_array != nullptr && index < p_array->size();
            const Model model = isThere ? Model((*p_array)[index]) : Model();
            p_to->value = p_from->value[index];
            p_to->model = model;
        }
    }
}

void compareTwo(const Pair& left, const Pair& right) {
    const bool expected = areEqual(left.model, right.model);
    fuzz::expectEqual(left.value == right.value, expected, "whether they are equal");
    fuzz::expectEqual(right.value == left.value, expected, "the other way round");
    fuzz::expectEqual(left.value != right.value, !expected, "whether they differ");
    const double number = floatingOf<double>(right.model);
    fuzz::expectEqual(left.value == number, areEqual(left.model, {number}), "equal to a number");
    const std::string text = textOf(right.model);
    fuzz::expectEqual(text == left.value, areEqual(left.model, {text}), "equal to a text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    Registers registers;
    for (int steps = 0; steps < 64 && !input.isAtEnd(); ++steps) {
        Pair& one = registers[input.below(registers.size())];
        Pair& other = registers[input.below(registers.size())];
        switch (input.below(6)) {
            case 0:
                assignScalar(&input, &one);
                break;
            case 1:
                assignOther(&input, &one);
                break;
            case 2:
                nest(&input, &registers, &one);
                break;
            case 3:
                compareTwo(one, other);
                break;
            default:
                transfer(&input, &one, &other);
        }
        compare(one.value, one.model);
        compare(other.value, other.model);
    }
    return 0;
}
