#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/container/common_value.h"
#include "support/fault_injection.h"

namespace {

using tevalon::base::container::CommonValue;
using Array = CommonValue::Array;

constexpr std::size_t kDepth = 100000;
constexpr std::size_t kSmallStackBytes = 256 * 1024;

/// Runs @p work on a thread with a stack that no recursion over kDepth levels fits on.
void runOnSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStackBytes), 0);
    const auto start = [](void* p_work) -> void* {
        (*static_cast<std::function<void()>*>(p_work))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, start, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    (void)pthread_attr_destroy(&attributes);
}

CommonValue wrapped(CommonValue&& value) {
    Array elements;
    elements.push_back(std::move(value));
    return CommonValue(std::move(elements));
}

CommonValue nested(std::size_t depth) {
    CommonValue value(1);
    for (std::size_t level = 0; level < depth; ++level) value = wrapped(std::move(value));
    return value;
}

std::string nestedText(std::size_t depth) {
    return std::string(depth, '[') + "1" + std::string(depth, ']');
}

// Compared by hand: nobody wants to read the difference of such texts.
void expectNested(const CommonValue& value, std::size_t depth) {
    EXPECT_TRUE(value.convertToStringType() == nestedText(depth));
}

TEST(CommonValueNestingTest, IsPrintedAndDestroyedOnASmallStack) {
    runOnSmallStack([] {
        const CommonValue value = nested(kDepth);

        expectNested(value, kDepth);
        const std::string text = value;
        EXPECT_EQ(text.size(), 2 * kDepth + 1);
    });
}

TEST(CommonValueNestingTest, IsCopiedOnASmallStack) {
    runOnSmallStack([] {
        CommonValue value = nested(kDepth);

        CommonValue copy(value);
        value = 1;

        expectNested(copy, kDepth);
        value = copy;
        copy = CommonValue();
        expectNested(value, kDepth);
    });
}

TEST(CommonValueNestingTest, IsReplacedOnASmallStack) {
    runOnSmallStack([] {
        CommonValue value = nested(kDepth);
        value = Array{};
        EXPECT_EQ(value.convertToStringType(), "[]");

        value = nested(kDepth);
        value = nested(3);
        expectNested(value, 3);

        const CommonValue flat(Array{1});
        value = nested(kDepth);
        value = flat;
        EXPECT_EQ(value.convertToStringType(), "[1]");

        value = nested(kDepth);
        const CommonValue moved(std::move(value));
        expectNested(moved, kDepth);
    });
}

TEST(CommonValueNestingTest, IsCopiedAndDestroyedOutOfSightOnASmallStack) {
    runOnSmallStack([] {
        CommonValue value = nested(kDepth);
        value = 5;

        CommonValue assigned;
        assigned = value;

        EXPECT_EQ(assigned.convertToStringType(), "5");
    });
}

TEST(CommonValueNestingTest, ConvertsToVectorsOnASmallStack) {
    runOnSmallStack([] {
        const CommonValue value = nested(kDepth);

        const std::vector<std::string> texts = value;
        const std::vector<unsigned int> numbers = value;

        ASSERT_EQ(texts.size(), 1U);
        EXPECT_TRUE(texts.front() == nestedText(kDepth - 1));
        EXPECT_EQ(numbers, std::vector<unsigned int>{0});
    });
}

TEST(CommonValueNestingTest, AnEmptyArrayEqualsNothingElse) {
    const CommonValue empty(Array{});

    EXPECT_TRUE(empty == CommonValue(Array{}));
    EXPECT_FALSE(empty == CommonValue(5));
    EXPECT_FALSE(CommonValue(5) == empty);
    EXPECT_FALSE(empty == CommonValue());
    EXPECT_FALSE(CommonValue(Array{empty}) == CommonValue(Array{5}));
}

TEST(CommonValueNestingTest, TakesArraysFromAnArrayOfItsOwnOnASmallStack) {
    runOnSmallStack([] {
        CommonValue value = nested(kDepth);

        value = value.array();
        expectNested(value, kDepth);
        value = value.array().front();

        expectNested(value, kDepth - 1);
    });
}

TEST(CommonValueNestingTest, HoldsNeighboursOnEveryLevel) {
    runOnSmallStack([] {
        CommonValue value(1);
        std::string front;
        std::string back;
        for (std::size_t level = 0; level < kDepth; ++level) {
            Array elements;
            elements.emplace_back("a");
            elements.push_back(std::move(value));
            elements.emplace_back(Array{2});
            value = std::move(elements);
            front += "[a,";
            back += ",[2]]";
        }

        const CommonValue copy(value);

        EXPECT_TRUE(copy.convertToStringType() == front + "1" + back);
    });
}

TEST(CommonValueNestingTest, IsDestroyedWithoutMemoryOnASmallStack) {
    runOnSmallStack([] {
        auto* const value = new CommonValue(Array{nested(3), nested(kDepth), nested(2)});
        CommonValue replaced = nested(kDepth);
        const test::FailCall fail(test::Call::New, 0, test::When().everyTime());

        delete value;
        replaced = CommonValue();

        EXPECT_EQ(replaced.type(), CommonValue::kUndefined);
    });
}

/// A random tree and, written beside it, its text.
CommonValue randomTree(std::mt19937& random, int depth, std::string* p_text) {
    if (depth == 0 || random() % 3 == 0) {
        const int number = static_cast<int>(random() % 100);
        *p_text += std::to_string(number);
        return CommonValue(number);
    }
    Array elements;
    *p_text += "[";
    for (auto left = random() % 5; left > 0; --left) {
        elements.push_back(randomTree(random, depth - 1, p_text));
        if (left > 1) *p_text += ",";
    }
    *p_text += "]";
    return CommonValue(std::move(elements));
}

TEST(CommonValueNestingTest, TreesOfAnyShapeAreCopiedAndPrintedWhole) {
    std::mt19937 random(1);
    CommonValue assigned;
    for (int tree = 0; tree < 500; ++tree) {
        std::string text;
        const CommonValue value = randomTree(random, 6, &text);

        const CommonValue copy(value);
        assigned = value;

        ASSERT_EQ(value.convertToStringType(), text);
        ASSERT_EQ(copy.convertToStringType(), text);
        ASSERT_EQ(assigned.convertToStringType(), text);
    }
}

TEST(CommonValueNestingTest, GivesUpACopyOfATreeWhenMemoryRunsOut) {
    std::mt19937 random(2);
    std::string text;
    const CommonValue value(
        Array{randomTree(random, 5, &text), randomTree(random, 5, &text), nested(20)});
    const std::string before = value.convertToStringType();
    bool copied = false;

    for (long allocation = 1; !copied; ++allocation) {
        const test::FailCall fail(test::Call::New, 0, test::When().nth(allocation));
        try {
            const CommonValue copy(value);
            copied = true;
            EXPECT_GT(allocation, 20);
        } catch (const std::bad_alloc&) {
        }
    }

    EXPECT_EQ(value.convertToStringType(), before);
}

}  // namespace
