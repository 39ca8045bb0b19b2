#pragma once

#include <cstddef>

/// Lets a test look at a private data member without a door in the product for it.
///
/// An explicit instantiation may name private members (C++17, [temp.explicit]): it is used to hand out the pointer.
/// Stands outside every namespace, with a tag that no other file of the test executable uses.
///
///     PRIVATE_MEMBER(SafePointerPoolHint, SafePointerPool, uint64_t, hint);
///     EXPECT_EQ(pool.*Get(SafePointerPoolHint()), 5U);
#define PRIVATE_MEMBER(Tag, Class, Type, member)                                                                       \
    struct Tag {                                                                                                       \
        friend Type Class::*Get(Tag);                                                                                  \
    };                                                                                                                 \
    template struct PrivateMemberOf<Tag, Type Class::*, &Class::member>

template <class Tag, class Pointer, Pointer pointer>
struct PrivateMemberOf {
    friend Pointer Get(Tag) { return pointer; }
};

/// The place of a member in an object, in bytes from its start.
template <class Class, class Type>
size_t OffsetOf(const Class& object, Type Class::*member) {
    return static_cast<size_t>(reinterpret_cast<const char*>(&(object.*member)) -
                               reinterpret_cast<const char*>(&object));
}
