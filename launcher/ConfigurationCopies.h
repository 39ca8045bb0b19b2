#pragma once

#include <string>

/// The device's two configuration files, and the rule of which one counts.
///
/// Throw only std::bad_alloc. Not before `main`: they use the static path strings.

/// @return "/mnt/mtd/code/config_file/protocolconfig.xml"
std::string WorkingCopyPath();
/// @return "/mnt/mtd/code/factory_setting/protocolconfig.xml"
std::string FactoryCopyPath();

/// The fallback: the working copy is tried first, and the factory copy only when that cannot be used.
/// @param isUsable called with the path of a copy; answers whether it can be used.
/// @return whether one can.
template <class Predicate>
bool FirstUsableCopy(const Predicate& isUsable) {
    return isUsable(WorkingCopyPath()) || isUsable(FactoryCopyPath());
}
