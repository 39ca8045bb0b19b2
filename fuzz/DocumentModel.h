#pragma once

#include "xmlconfig/XmlNestingLimit.h"

#include <cstddef>
#include <string>
#include <tinyxml.h>
#include <vector>

/// What a document has to be after its loads: a second reading, by TinyXML and GNU libiconv alone.
class DocumentModel {
public:
    /// One load of a file that holds `text`. The codes are those of the product.
    struct Load {
        unsigned charset;
        unsigned mode;
        std::string text;
    };

    /// The model parses at any depth. Longer texts could nest beyond the limit of the product ("<a>" a level): targets
    /// leave them out, scripts/fuzz makes none. The limit is the subject of NestingLimitFuzz.
    static constexpr size_t MaxBytes = (sizeof "<a>" - 1) * MaxElementDepth;

    /// @return whether it succeeds.
    bool load(const Load& wanted);

    /// @return what the file of the last load holds after a Save, when it held `before`.
    std::string saved(const std::string& before);

    /// The root of what was parsed last, or null.
    const TiXmlElement* rootElement() const { return root; }

private:
    void createEmpty();
    std::string print();
    bool parse(const std::string& bytes, TiXmlEncoding encoding);
    void learnEncoding();

    TiXmlDocument document;
    const TiXmlElement* root = nullptr;
    bool isUtf8 = false;
    bool loaded = false;
    unsigned charset = 0;
    unsigned mode = 1;
};

/// @return the node of that name beneath an element, or null.
const TiXmlElement* FindNode(const TiXmlElement& parent, const std::string& name);

/// @return the items beneath an element, in their order.
std::vector<const TiXmlElement*> ItemsOf(const TiXmlElement& parent);
