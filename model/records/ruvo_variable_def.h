#pragma once
// The system-variable table as applets see it. Each group of ten is in the order: double,
// int32, uint32, int64, uint64, uint8_array, int32_array, int64_array, double_array, string.
// Add and delete return the host's code, set 0 or -1, get 0 or -40.

#include "ruvo_com_def.h"

struct _KelnVfun {
    void* owner;  // 0
    s32 (*add_system_var_double)(const char* VarName, const char* varDescription);        // 1
    s32 (*add_system_var_int32)(const char* VarName, const char* varDescription);         // 2
    s32 (*add_system_var_uint32)(const char* VarName, const char* varDescription);        // 3
    s32 (*add_system_var_int64)(const char* VarName, const char* varDescription);         // 4
    s32 (*add_system_var_uint64)(const char* VarName, const char* varDescription);        // 5
    s32 (*add_system_var_uint8_array)(const char* VarName, const char* varDescription);   // 6
    s32 (*add_system_var_int32_array)(const char* VarName, const char* varDescription);   // 7
    s32 (*add_system_var_int64_array)(const char* VarName, const char* varDescription);   // 8
    s32 (*add_system_var_double_array)(const char* VarName, const char* varDescription);  // 9
    s32 (*add_system_var_string)(const char* VarName, const char* varDescription);        // 10
    s32 (*set_system_var_double)(const char* VarName, double setValue);                  // 11
    s32 (*set_system_var_int32)(const char* VarName, s32 setValue);                      // 12
    s32 (*set_system_var_uint32)(const char* VarName, u32 setValue);                     // 13
    s32 (*set_system_var_int64)(const char* VarName, s64 setValue);                      // 14
    s32 (*set_system_var_uint64)(const char* VarName, u64 setValue);                     // 15
    s32 (*set_system_var_uint8_array)(const char* VarName, u32 arraySize, const u8* arrayPtr);       // 16
    s32 (*set_system_var_int32_array)(const char* VarName, u32 arraySize, const s32* arrayPtr);      // 17
    s32 (*set_system_var_int64_array)(const char* VarName, u32 arraySize, const s64* arrayPtr);      // 18
    s32 (*set_system_var_double_array)(const char* VarName, u32 arraySize, const double* arrayPtr);  // 19
    s32 (*set_system_var_string)(const char* VarName, const char* string);                          // 20
    s32 (*delete_system_variant)(const char* VarName);                                              // 21
    RuvoSlot constants[10];  // 22 to 31, left null: the constant readers are plain exports
    s32 (*get_system_var_double)(const char* VarName, double* strValue);                 // 32
    s32 (*get_system_var_int32)(const char* VarName, s32* strValue);                     // 33
    s32 (*get_system_var_uint32)(const char* VarName, u32* strValue);                    // 34
    s32 (*get_system_var_int64)(const char* VarName, s64* strValue);                     // 35
    s32 (*get_system_var_uint64)(const char* VarName, u64* strValue);                    // 36
    s32 (*get_system_var_uint8_array)(const char* VarName, s32* arraySize, u8* arrayPtr);        // 37
    s32 (*get_system_var_int32_array)(const char* VarName, s32* arraySize, s32* arrayPtr);       // 38
    s32 (*get_system_var_int64_array)(const char* VarName, s32* arraySize, s64* arrayPtr);       // 39
    s32 (*get_system_var_double_array)(const char* VarName, s32* arraySize, double* arrayPtr);   // 40
    s32 (*get_system_var_string)(const char* VarName, char* string);  // 41, 256 bytes out
};

static_assert(sizeof(_KelnVfun) == 42 * sizeof(void*), "_KelnVfun has 42 slots");
