#pragma once

#include "protocol/BaseDomain.h"

#include <cstdint>
#include <string>

/// One protocol that the device can run, as the configuration file describes it.
///
/// Owns:    its two texts.
/// Fails:   never, except `std::bad_alloc` where a text is copied.
/// Threads: one at a time per object.
class ProtocolTypeInfo : public BaseDomain {
public:
    /// The kind tag that every `ProtocolTypeInfo` carries.
    static constexpr int32_t DomainType = 235;

    /// Empty name and identifier, type 0, not enabled.
    ProtocolTypeInfo();
    /// Copies the four fields; the tag is set anew.
    ProtocolTypeInfo(const ProtocolTypeInfo& other);
    /// Copies the four fields and leaves the tag. Assigning a record to itself changes nothing. When a text cannot be
    /// copied, the fields before it are the other's already, and those from it on are as they were.
    ProtocolTypeInfo& operator=(const ProtocolTypeInfo& other);
    ~ProtocolTypeInfo() override;

    void setProtocolName(const std::string& name);

    /// @return the stored name: valid until the record is changed or destroyed.
    const std::string& getProtocolName() const noexcept { return protocolName; }

    void setProtocolId(const std::string& id);

    /// @return the stored identifier: valid until the record is changed or destroyed.
    const std::string& getProtocolId() const noexcept { return protocolId; }

    void setProtocolType(int32_t type) noexcept { protocolType = type; }

    int32_t getProtocolType() const noexcept { return protocolType; }

    void setProtocolEnable(bool enable) noexcept { protocolEnable = enable; }

    bool isProtocolEnable() const noexcept { return protocolEnable; }

private:
    std::string protocolName; ///< looked up inside the names of the start programs
    std::string protocolId;   ///< kept as the text written in the file
    int32_t protocolType;
    bool protocolEnable;
};
