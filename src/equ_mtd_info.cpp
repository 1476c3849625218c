// Flash partition tables. A partition's role fixes its slot, the same in
// every table, so unused slots stay zero; slot 0 spans the whole device.
#include "equ_mtd_info.h"

// eMMC layout of the K5T2 family: every board record of this tool points here.
const EQU_PART_INFO_S gstPartInfo_K5T2B01[EQU_PART_SLOT_NUM] = {
    {"emmc", 0x200000000ULL, 0},
    {"loader", 0x200000ULL, 0},
    {"uboot", 0x400000ULL, 0x200000ULL},
    {"trust", 0x200000ULL, 0x600000ULL},
    {"env", 0x80000ULL, 0x800000ULL},
    {"backenv", 0x80000ULL, 0x880000ULL},
    {"kernel", 0x8000000ULL, 0x900000ULL},
    {"weblogo", 0x200000ULL, 0x8900000ULL},
    {"cfg", 0x40000000ULL, 0x8B00000ULL},
    {"program", 0x40000000ULL, 0x48B00000ULL},
    {"dapa", 0x40000000ULL, 0x88B00000ULL},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},  // slots 11..18
    {"reserved_1", 0x80000000ULL, 0xC8B00000ULL},
    {},
    {},
    {},
    {},  // slots 20..23
    {"panic", 0x77500000ULL, 0x148B00000ULL},
    {},
    {},  // slots 25..26
};

// 16 MiB serial-flash layout of an older board; kept so its slots stay known.
const EQU_PART_INFO_S gstPartInfo_NVR740[EQU_PART_SLOT_NUM] = {
    {"chip", 0x1000000ULL, 0},
    {},
    {"uboot", 0x40000ULL, 0},
    {},
    {"env", 0x10000ULL, 0x40000ULL},
    {"backenv", 0x10000ULL, 0xEE0000ULL},
    {"kernel", 0x1B0000ULL, 0xB0000ULL},
    {},
    {"config", 0x60000ULL, 0x50000ULL},
    {"program", 0xC80000ULL, 0x260000ULL},
    {},
    {"ActiveX", 0x100000ULL, 0xF00000ULL},
    {"custom", 0x10000ULL, 0xEF0000ULL},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},
    {},  // slots 13..26
};
