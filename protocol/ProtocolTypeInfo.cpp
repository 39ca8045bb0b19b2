#include "protocol/ProtocolTypeInfo.h"

ProtocolTypeInfo::ProtocolTypeInfo() : protocolType(0), protocolEnable(false) {
    domainType = DomainType;
}

ProtocolTypeInfo::ProtocolTypeInfo(const ProtocolTypeInfo& other)
    : BaseDomain(other),
      protocolName(other.protocolName),
      protocolId(other.protocolId),
      protocolType(other.protocolType),
      protocolEnable(other.protocolEnable) {
    domainType = DomainType;
}

ProtocolTypeInfo& ProtocolTypeInfo::operator=(const ProtocolTypeInfo& other) {
    if (this == &other) {
        return *this;
    }
    BaseDomain::operator=(other);
    protocolName = other.protocolName;
    protocolId = other.protocolId;
    protocolType = other.protocolType;
    protocolEnable = other.protocolEnable;
    return *this;
}

ProtocolTypeInfo::~ProtocolTypeInfo() = default;

void ProtocolTypeInfo::setProtocolName(const std::string& name) {
    protocolName = name;
}

void ProtocolTypeInfo::setProtocolId(const std::string& id) {
    protocolId = id;
}
