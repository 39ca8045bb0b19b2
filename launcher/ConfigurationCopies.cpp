#include "launcher/ConfigurationCopies.h"

#include "launcher/LauncherPaths.h"

std::string WorkingCopyPath() {
    return ConfigFileDir + ProtocolConfigFileName;
}

std::string FactoryCopyPath() {
    return FactorySettingDir + ProtocolConfigFileName;
}
