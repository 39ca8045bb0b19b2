#include "xmlconfig/XmlVocabulary.h"

#include <gtest/gtest.h>

TEST(XmlVocabularyTest, TheFourWordsAreThoseOfTheFileFormat) {
    EXPECT_STREQ(NodeElementName, "Configure");
    EXPECT_STREQ(ItemElementName, "ConfigItem");
    EXPECT_STREQ(DefaultDocumentName, "HardwareConfig");
    EXPECT_STREQ(KeyAttributeName, "name");
}
