#pragma once

#include "runtime/SafePointer.h"
#include "xmlconfig/XmlConfigureNode.h"

#include <cstdint>
#include <memory>
#include <string>

class XmlConfigureTree;

/// How a document is opened. Any other value reads the file and never writes it, like `ReadOnly`.
enum XmlOpenMode : uint32_t {
    ReadOnly = 1,  ///< Load reads the file, Save writes nothing
    ReadWrite = 2, ///< Load reads the file, Save writes it
    Create = 3,    ///< Load makes an empty document and does not read, Save writes it
};

/// One configuration file: loaded whole, searched through nodes and items, and saved as UTF-8.
///
/// Owns:    the parsed tree. Nodes and items point into it: let them go before the document is destroyed or loaded
///          again. Not copied.
/// Fails:   by result; throws only what `ReadFileToString` does and, from `GetNode`, what the safe pointers throw. Nothing
///          is printed, but for the converter's line in the log when a conversion cannot be opened. A Load that ends by
///          std::bad_alloc inside TinyXML's parser leaks what it had read of the element on the top level: the library
///          links a node only when it is parsed to its end, and loses it until then.
/// Threads: one, from Load to Save.
class XmlConfigureDocument {
public:
    XmlConfigureDocument();
    ~XmlConfigureDocument();
    XmlConfigureDocument(const XmlConfigureDocument&) = delete;
    XmlConfigureDocument& operator=(const XmlConfigureDocument&) = delete;

    /// Reads a file (or, in `Create` mode, makes an empty document) and brings its text into the character set
    /// `charset`: pass `CharSetUtf8` (charset/CharSetConverter.h) to read texts as UTF-8, whatever they are written in.
    ///
    /// A text is UTF-8 when its declaration says so; deliberately, any other is taken as GB2312, one without a
    /// declaration or with a byte-order mark too, unless the last text of this object that had a declaration declared
    /// UTF-8. Where that is not what was asked for, the text is converted, and cut where it does not convert. In
    /// `Create` mode a second Load appends to what the first one left.
    /// @param path any that fopen(3) takes; `Save` opens only paths in ASCII.
    /// @param charset code of `CharSetType`. With 3 (UTF-16) every Load fails: the text ends at its first zero byte.
    /// @param mode an `XmlOpenMode`.
    /// @return false when the file cannot be read whole, when the text does not parse, or when its root is not an
    ///         element "Configure" with a "name". What an earlier Load set for `Save` stays then, but the document is
    ///         of no further use.
    bool Load(const std::string& path, unsigned charset, unsigned mode);

    /// Finds a node beneath the root by name, as `XmlConfigureNode::GetNode` does.
    /// @return false, with `out` as it was, when there is none, or no root.
    bool GetNode(const std::string& name, SafePointer<XmlConfigureNode>& out) const;

    /// Writes a loaded document back to its path, as UTF-8, when the mode was `ReadWrite` or `Create`, and closes it
    /// for further saving. In every other case nothing is written.
    ///
    /// Deliberate: the text of a document that was not loaded as UTF-8 is converted from GB2312, whatever its charset.
    /// After a Load that failed, what is left of the tree is written to the file of the last one that succeeded; it may
    /// be nothing.
    /// @return false when it could not be printed, converted at all (the file is left alone then) or written whole; it
    ///         can be saved again then. True otherwise, also when there was nothing to write.
    bool Save();

private:
    std::unique_ptr<XmlConfigureTree> tree;
    bool loaded;      ///< a Load succeeded since the last successful Save
    uint32_t charset; ///< code of the text in the tree
    uint32_t mode;    ///< an `XmlOpenMode`
    std::string path; ///< the file of the last successful Load
    std::string name; ///< the root's name in a document made from nothing
};
