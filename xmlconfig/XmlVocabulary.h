#pragma once

/// The words of a configuration document.

/// Name of the root element and of every node element.
inline constexpr char NodeElementName[] = "Configure";
/// Name of every item element.
inline constexpr char ItemElementName[] = "ConfigItem";
/// Value of the root's key attribute in a document made from nothing.
inline constexpr char DefaultDocumentName[] = "HardwareConfig";
/// The attribute that names the root and each node.
inline constexpr char KeyAttributeName[] = "name";
