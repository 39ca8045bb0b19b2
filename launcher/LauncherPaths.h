#pragma once

#include <string>

/// The fixed places of the device. Built during static initialisation, in the order of declaration (each directory from
/// `CodeRootDir`), and destroyed at exit: no other static object may use them.

/// "/mnt/mtd/code/"
extern const std::string CodeRootDir;
/// "/mnt/mtd/code/factory_setting/": the factory copy of the configuration, and nothing else. The start programs stand
/// in "/factory_setting/" (`ServiceCommand::ServiceDir`), a different directory.
extern const std::string FactorySettingDir;
/// "/mnt/mtd/code/config_file/": the working copy of the configuration.
extern const std::string ConfigFileDir;
/// "protocolconfig.xml"
extern const std::string ProtocolConfigFileName;
/// "loadservice": what the file name of every start program contains.
extern const std::string LoadServiceKeyword;
