// Keyword help tables and flash partition tables: every row present (only the
// two reserved rows empty), Chinese stored as GBK, named rows pointing at
// their keywords, and partition layouts without gaps or overlaps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "equ_help_info.h"
#include "equ_mtd_info.h"

namespace {

TEST(HelpTables, RowsFilledGbkAndNamed)
{
#define T(x) std::make_pair(&szEquHelp##x[0], std::size(szEquHelp##x))
    const std::pair<const EQU_KEY_HELP_INFO_S *, size_t> aTables[] = {
        T(Comm),     T(Flash),   T(IP),     T(Version),  T(Temperature), T(Button),   T(Net),
        T(Subcard),  T(Fan),     T(Pcie),   T(Digital),  T(BIOS),        T(Software), T(Boot),
        T(Firmware), T(Runtime), T(Clear),  T(Manuinfo), T(Ram),         T(Alarm),    T(Usb),
        T(Audio),    T(Edid),    T(Buzzer), T(Infrared), T(CpuInfo),     T(Optic),    T(Power),
        T(Oem),      T(Gps),     T(Led),    T(Rtc),      T(Hasa),        T(Serial),   T(Watchdog),
        T(Chip),     T(Video),   T(SDI),    T(Mcu),      T(Harddisk),    T(Esata),    T(Cpld),
        T(Ssd),      T(x4tox2),
    };
#undef T
    for (auto [pstRows, n] : aTables) {
        for (size_t i = 0; i < n; i++) {
            bool bReserved =
                (pstRows == szEquHelpComm && i == 5) || (pstRows == szEquHelpClear && i == 3);
            EXPECT_EQ(bReserved, pstRows[i].pcKey == nullptr) << i;
            EXPECT_EQ(bReserved, pstRows[i].pcHelpCh == nullptr) << i;
            EXPECT_EQ(bReserved, pstRows[i].pcHelpEn == nullptr) << i;
        }
    }
    // The file is compiled to GBK: "装备测试" is stored as these bytes.
    EXPECT_STREQ(szEquHelpComm[0].pcHelpCh, "\xD7\xB0\xB1\xB8\xB2\xE2\xCA\xD4");
    // Named rows on either side of the reserved row, and the last.
    for (auto [stRow, pcKey] : {std::pair{HELP_COMM_BOARD_TYPE, "board type string"},
                                {HELP_COMM_DELETE, "delete"},
                                {HELP_COMM_HDMI, "HDMI"},
                                {HELP_BUTTON_TIME, "time"},
                                {HELP_LED_ON, "on"}}) {
        EXPECT_STREQ(pcKey, stRow.pstTbl[stRow.ulRow].pcKey);
    }
}

// Sorted by offset, the partitions follow each other from offset 0 and stay
// within the device that slot 0 describes; empty slots are all zero.
void expect_tiled(const EQU_PART_INFO_S *pstTbl, size_t nParts, bool bFillsDevice)
{
    std::vector<EQU_PART_INFO_S> v(pstTbl + 1, pstTbl + EQU_PART_SLOT_NUM);
    for (const EQU_PART_INFO_S &p : v) {
        EXPECT_TRUE(p.pcName != nullptr || p.u64Size + p.u64Offset == 0);
    }
    std::erase_if(v, [](const EQU_PART_INFO_S &p) { return p.pcName == nullptr; });
    ASSERT_EQ(nParts, v.size());
    std::sort(v.begin(), v.end(), [](auto &a, auto &b) { return a.u64Offset < b.u64Offset; });
    uint64_t u64End = 0;
    for (const EQU_PART_INFO_S &p : v) {
        EXPECT_EQ(u64End, p.u64Offset) << p.pcName;
        u64End = p.u64Offset + p.u64Size;
    }
    EXPECT_TRUE(bFillsDevice ? u64End == pstTbl[0].u64Size : u64End <= pstTbl[0].u64Size);
}

TEST(PartitionTables, LayoutsTileTheirDevice)
{
    EXPECT_STREQ("emmc", gstPartInfo_K5T2B01[0].pcName);
    EXPECT_STREQ("panic", gstPartInfo_K5T2B01[24].pcName);
    expect_tiled(gstPartInfo_K5T2B01, 12, false);
    EXPECT_STREQ("chip", gstPartInfo_NVR740[0].pcName);
    expect_tiled(gstPartInfo_NVR740, 8, true);
}

}  // namespace
