// Flash partition tables. The slot number is the partition's role, the same in
// every table; slot 0 describes the whole device and empty slots stay zero.
#pragma once
#include <cstdint>

#define EQU_PART_SLOT_NUM 27

struct EQU_PART_INFO_S {
    const char *pcName;  // null for an empty slot
    uint64_t u64Size;    // bytes
    uint64_t u64Offset;  // bytes from the start of the device
};

extern const EQU_PART_INFO_S gstPartInfo_K5T2B01[EQU_PART_SLOT_NUM];
extern const EQU_PART_INFO_S gstPartInfo_NVR740[EQU_PART_SLOT_NUM];
