#pragma once

/// The words of the protocol section of a configuration; those of its elements are XmlVocabulary's. Pointers,
/// not arrays: the compiler then keeps one copy of a word that a file has elsewhere, too.

/// Name of the section.
inline constexpr const char* ProtocolSectionName = "ProtocolConfig";

/// The attributes of an entry.
inline constexpr const char* ProtocolNameAttribute = "ProtocolName";
inline constexpr const char* ProtocolIdAttribute = "ProtocolId";
inline constexpr const char* ProtocolTypeAttribute = "ProtocolType";
inline constexpr const char* ProtocolEnableAttribute = "ProtocolEnable";
