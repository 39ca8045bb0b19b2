#pragma once

/// What the launcher prints when it cannot use the working copy of the configuration.
constexpr const char* WorkingFailed = "Run ConfigFile(/mnt/mtd/code/config_file/protocolconfig.xml) failed\n";
/// The same of the factory copy.
constexpr const char* FactoryFailed = "Run ConfigFile(/mnt/mtd/code/factory_setting/protocolconfig.xml) failed\n";
