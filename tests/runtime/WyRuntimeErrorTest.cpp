#include "runtime/WyRuntimeError.h"

#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <type_traits>

static_assert(std::is_base_of_v<std::exception, WyRuntimeError>);
static_assert(std::has_virtual_destructor_v<WyRuntimeError>);
static_assert(std::is_copy_constructible_v<WyRuntimeError> && std::is_copy_assignable_v<WyRuntimeError>);
static_assert(!std::is_convertible_v<const char*, WyRuntimeError> &&
              !std::is_convertible_v<std::string, WyRuntimeError>);
static_assert(noexcept(std::declval<const WyRuntimeError&>().what()));
static_assert(sizeof(WyRuntimeError) == sizeof(std::exception) + sizeof(std::string), "the message and nothing else");

PRIVATE_MEMBER(WyRuntimeErrorMessage, WyRuntimeError, std::string, message);

TEST(WyRuntimeErrorTest, TheMessageIsItsOneField) {
    const WyRuntimeError error("text");

    EXPECT_EQ(OffsetOf(error, Get(WyRuntimeErrorMessage())), sizeof(std::exception));
    EXPECT_EQ(error.*Get(WyRuntimeErrorMessage()), "text");
}

TEST(WyRuntimeErrorTest, ItCarriesACopyOfAString) {
    std::string text = "too much of something";

    const WyRuntimeError error(text);
    text[0] = 'X';

    EXPECT_STREQ(error.what(), "too much of something");
}

TEST(WyRuntimeErrorTest, ItCarriesACopyOfACString) {
    char text[] = "gone";

    const WyRuntimeError error(text);
    text[0] = 'X';

    EXPECT_STREQ(error.what(), "gone");
}

TEST(WyRuntimeErrorTest, ANullCStringMakesAnEmptyMessage) {
    const char* none = nullptr;

    EXPECT_STREQ(WyRuntimeError(none).what(), "");
}

TEST(WyRuntimeErrorTest, AnEmptyTextMakesAnEmptyMessage) {
    EXPECT_STREQ(WyRuntimeError("").what(), "");
    EXPECT_STREQ(WyRuntimeError(std::string()).what(), "");
}

TEST(WyRuntimeErrorTest, WhatIsReachedThroughTheStandardBase) {
    std::string caught;

    try {
        throw WyRuntimeError("thrown");
    } catch (const std::exception& error) {
        caught = error.what();
    }

    EXPECT_EQ(caught, "thrown");
}

TEST(WyRuntimeErrorTest, ACopyHasAMessageOfItsOwn) {
    WyRuntimeError original("first");
    const WyRuntimeError copy(original);

    original = WyRuntimeError("second");

    EXPECT_STREQ(copy.what(), "first");
    EXPECT_STREQ(original.what(), "second");
}
