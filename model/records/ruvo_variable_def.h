#pragma once
// The system-variable table as applets see it. Each group of ten is in the order: double,
// int32, uint32, int64, uint64, uint8_array, int32_array, int64_array, double_array, string.

#include "ruvo_com_def.h"

struct _KelnVfun {
    void* owner;               // 0
    RuvoSlot add[10];          // 1 to 10
    RuvoSlot set[10];          // 11 to 20
    RuvoSlot delete_system_variant;  // 21
    RuvoSlot constants[10];    // 22 to 31, left null: the constant readers are plain exports
    RuvoSlot get[10];          // 32 to 41
};

static_assert(sizeof(_KelnVfun) == 42 * sizeof(void*), "_KelnVfun has 42 slots");
