#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// A place in a text, counted from 1: lines as CR LF, CR and LF end them, columns in characters with a tab as one. In a
/// text that is read as GB2312, two bytes outside ASCII are a character.
struct XmlPlace {
    int line = 1;
    int column = 1;
};

/// An attribute, as it stands in the document, entities resolved.
struct XmlPlacedAttribute {
    std::string name;
    std::string value;
    XmlPlace place;
};

/// An element with its attributes and the elements right beneath it.
struct XmlPlacedElement {
    /// @return the attribute of this name, or null.
    const XmlPlacedAttribute* find(const std::string& attributeName) const;

    std::string name;
    XmlPlace place;
    std::vector<XmlPlacedAttribute> attributes;
    std::vector<XmlPlacedElement> children; ///< down to the third level, where entries stand
};

/// A configuration text read as `XmlConfigureDocument::Load` reads it, and where what stands.
struct XmlPlacedText {
    enum class State {
        WellFormed,
        NotWellFormed, ///< `reason` and `place` say why and where
        TooDeep,       ///< elements nest deeper than TinyXML's recursion is given
        TooMuch,       ///< takes more than `MaxParseSteps`; only `ParseWithPlaces` looks at that
    };

    /// Stands for "nowhere" among the offsets.
    static constexpr size_t None = std::string::npos;

    State state = State::NotWellFormed;
    std::string reason;           ///< TinyXML's own words
    XmlPlace place;               ///< of the error; the end of the text where TinyXML tells none
    bool endsEarly = false;       ///< the error is that the text ends where it may not
    bool isUtf8 = false;          ///< whether it is read as UTF-8; as GB2312 otherwise
    bool hasDeclaration = false;  ///< on the top level
    std::string declaredEncoding; ///< empty without a declaration or an encoding in it
    XmlPlace declarationPlace;    ///< of the declaration
    size_t cutAt = None; ///< offset in bytes where the conversion from GB2312 ends, when it does not convert whole
    std::vector<XmlPlacedElement> topLevel; ///< the elements; the first is the root. Empty unless well-formed
};

/// Parses a configuration text and keeps the places, for whoever explains it to a person. The same readings in the same
/// order as `XmlConfigureDocument::Load` with UTF-8: for the encoding, converted where it is not UTF-8, again as UTF-8.
///
/// Work is bounded: a text whose elements or attributes would take TinyXML more than `MaxParseSteps` is not parsed.
/// @param content the bytes of a file; they end at the first zero byte, as for the launcher.
/// Throws only std::bad_alloc. Threads may call it at once.
XmlPlacedText ParseWithPlaces(const std::string& content);

/// @return the place of a byte of a text.
/// @param isUtf8 whether the text is read as UTF-8; as GB2312 otherwise.
XmlPlace PlaceOfOffset(const std::string& text, size_t offset, bool isUtf8);
