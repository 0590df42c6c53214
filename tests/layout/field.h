// field.h: where a class keeps a field, private ones too, and the comparison with the figures.

#ifndef TESTS_LAYOUT_FIELD_H
#define TESTS_LAYOUT_FIELD_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <ostream>

#include "layout/figures.h"

namespace layout {

// Both our processors follow the same C++ ABI: a pointer to a data member is its offset. So no
// object is needed, the constructors of which may start threads.
template <typename Class, typename Type>
Field describe(Type Class::*field) {
    static_assert(sizeof(field) == sizeof(std::ptrdiff_t));
    std::ptrdiff_t offset = -1;
    std::memcpy(&offset, &field, sizeof(offset));
    return {static_cast<std::size_t>(offset), sizeof(Type)};
}

/// Its explicit instantiation, in which any member may be named, defines fieldOf(Name).
template <typename Name, auto kField>
struct Revealed {
    friend Field fieldOf(Name) { return describe(kField); }
};

inline bool operator==(const Field& left, const Field& right) {
    return left.offset == right.offset && left.size == right.size;
}

inline std::ostream& operator<<(std::ostream& out, const Field& field) {
    return out << field.size << " bytes at " << field.offset;
}

/// Compares size and alignment of @p Class, and its fields, named in their order.
template <typename Class, std::size_t kCount, typename... Names>
void expectLayout(const Figures<kCount>& figures, Names... names) {
    static_assert(sizeof...(Names) == kCount);
    EXPECT_EQ(sizeof(Class), figures.size);
    EXPECT_EQ(alignof(Class), figures.alignment);
    const Field fields[] = {fieldOf(names)...};
    for (std::size_t i = 0; i < kCount; ++i) EXPECT_EQ(fields[i], figures.fields[i]) << "no. " << i;
}

/// For a class whose size is its own affair.
template <typename... Names>
void expectInOrder(Names... names) {
    const Field fields[] = {fieldOf(names)...};
    for (std::size_t i = 1; i < sizeof...(Names); ++i) {
        EXPECT_GE(fields[i].offset, fields[i - 1].offset + fields[i - 1].size) << "no. " << i;
    }
}

}  // namespace layout

/// Makes @p name a type, fieldOf() of which tells of @p Class::@p field. Within namespace layout.
#define LAYOUT_FIELD(name, Class, field) \
    struct name {};                      \
    Field fieldOf(name);                 \
    template struct Revealed<name, &Class::field>

#endif  // TESTS_LAYOUT_FIELD_H
