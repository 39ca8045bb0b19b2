#include "protocol/ProtocolVocabulary.h"

#include <gtest/gtest.h>

TEST(ProtocolVocabularyTest, TheFiveWordsAreThoseOfTheFileFormat) {
    EXPECT_STREQ(ProtocolSectionName, "ProtocolConfig");
    EXPECT_STREQ(ProtocolNameAttribute, "ProtocolName");
    EXPECT_STREQ(ProtocolIdAttribute, "ProtocolId");
    EXPECT_STREQ(ProtocolTypeAttribute, "ProtocolType");
    EXPECT_STREQ(ProtocolEnableAttribute, "ProtocolEnable");
}
