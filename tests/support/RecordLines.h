#pragma once

#include "protocol/ProtocolConfig.h"

#include <string>

/// @return the records of a list, one line each, so that a difference is readable: "Modbus,id,1,on\n".
inline std::string RecordLines(ProtocolConfig& config) {
    std::string lines;
    for (const ProtocolTypeInfo& info : config.getProtocolList()) {
        lines += info.getProtocolName() + "," + info.getProtocolId() + "," + std::to_string(info.getProtocolType()) +
                 (info.isProtocolEnable() ? ",on\n" : ",off\n");
    }
    return lines;
}
