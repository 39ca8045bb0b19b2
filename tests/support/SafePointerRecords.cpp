#include "tests/support/SafePointerRecords.h"

#include "runtime/SafePointerPool.h"
#include "tests/support/PrivateMember.h"

#include <bitset>
#include <cstdint>
#include <vector>

PRIVATE_MEMBER(TakenRecordsUsedBits, SafePointerPool, std::vector<uint32_t>, usedBits);

size_t TakenRecords() {
    size_t taken = 0;
    for (const uint32_t word : SafePointerPool::instance()->*Get(TakenRecordsUsedBits())) {
        taken += std::bitset<32>(word).count();
    }
    return taken;
}
