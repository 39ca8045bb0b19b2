#include "launcher/LauncherPaths.h"

// One source file, so that the order of initialisation is the order of these lines (C++17, [basic.start.dynamic]). When
// there is no memory for them there is none to start anything with, and the process may end.
// LCOV_EXCL_FILE: only functions are counted, and here is none.
// NOLINTBEGIN(cert-err58-cpp)
const std::string CodeRootDir = "/mnt/mtd/code/";
const std::string FactorySettingDir = CodeRootDir + "factory_setting/";
const std::string ConfigFileDir = CodeRootDir + "config_file/";
const std::string ProtocolConfigFileName = "protocolconfig.xml";
const std::string LoadServiceKeyword = "loadservice";
// NOLINTEND(cert-err58-cpp)
