// Keyword help tables and flash partition tables: every row present (only
// the two reserved rows empty), the texts operators rely on kept letter for
// letter, Chinese stored as GBK, and partition layouts without gaps.
#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "equ_help_info.h"
#include "equ_mtd_info.h"

namespace {

struct Table {
    const char *name;
    const EQU_KEY_HELP_INFO_S *rows;
    size_t count;
};

#define T(tbl)                                                                                     \
    Table                                                                                          \
    {                                                                                              \
#tbl, tbl, std::size(tbl)                                                                  \
    }
const Table kTables[] = {
    T(szEquHelpComm),        T(szEquHelpFlash),    T(szEquHelpIP),       T(szEquHelpVersion),
    T(szEquHelpTemperature), T(szEquHelpButton),   T(szEquHelpNet),      T(szEquHelpSubcard),
    T(szEquHelpFan),         T(szEquHelpPcie),     T(szEquHelpDigital),  T(szEquHelpBIOS),
    T(szEquHelpSoftware),    T(szEquHelpBoot),     T(szEquHelpFirmware), T(szEquHelpRuntime),
    T(szEquHelpClear),       T(szEquHelpManuinfo), T(szEquHelpRam),      T(szEquHelpAlarm),
    T(szEquHelpUsb),         T(szEquHelpAudio),    T(szEquHelpEdid),     T(szEquHelpBuzzer),
    T(szEquHelpInfrared),    T(szEquHelpCpuInfo),  T(szEquHelpOptic),    T(szEquHelpPower),
    T(szEquHelpOem),         T(szEquHelpGps),      T(szEquHelpLed),      T(szEquHelpRtc),
    T(szEquHelpHasa),        T(szEquHelpSerial),   T(szEquHelpWatchdog), T(szEquHelpChip),
    T(szEquHelpVideo),       T(szEquHelpSDI),      T(szEquHelpMcu),      T(szEquHelpHarddisk),
    T(szEquHelpEsata),       T(szEquHelpCpld),     T(szEquHelpSsd),      T(szEquHelpx4tox2),
};
#undef T

bool isReservedRow(const EQU_KEY_HELP_INFO_S *rows, size_t i)
{
    return (rows == szEquHelpComm && i == 5) || (rows == szEquHelpClear && i == 3);
}

// Converts GBK text to UTF-8; a conversion failure (text not GBK) gives "<bad>".
std::string gbkToUtf8(const char *gbk)
{
    iconv_t cd = iconv_open("UTF-8", "GBK");
    if (cd == (iconv_t)-1) {
        return "<no iconv>";
    }
    std::string in(gbk);
    std::vector<char> out(in.size() * 3 + 1);
    char *pin = in.data();
    char *pout = out.data();
    size_t inLeft = in.size();
    size_t outLeft = out.size();
    size_t rc = iconv(cd, &pin, &inLeft, &pout, &outLeft);
    iconv_close(cd);
    if (rc == (size_t)-1 || inLeft != 0) {
        return "<bad>";
    }
    return std::string(out.data(), pout);
}

TEST(HelpTables, EveryRowFilledExceptTheReservedOnes)
{
    for (const Table &t : kTables) {
        SCOPED_TRACE(t.name);
        for (size_t i = 0; i < t.count; i++) {
            const EQU_KEY_HELP_INFO_S &r = t.rows[i];
            SCOPED_TRACE(i);
            if (isReservedRow(t.rows, i)) {
                EXPECT_EQ(r.pcKey, nullptr);
                EXPECT_EQ(r.pcHelpEn, nullptr);
                EXPECT_EQ(r.pcHelpCh, nullptr);
                continue;
            }
            ASSERT_NE(r.pcKey, nullptr);
            ASSERT_NE(r.pcHelpEn, nullptr);
            ASSERT_NE(r.pcHelpCh, nullptr);
            EXPECT_GT(strlen(r.pcKey), 0u);
            EXPECT_GT(strlen(r.pcHelpEn), 0u);
            EXPECT_NE(gbkToUtf8(r.pcHelpCh), "<bad>") << "Chinese text is not GBK";
        }
    }
}

TEST(HelpTables, ChineseIsStoredAsGbk)
{
    EXPECT_STREQ(szEquHelpComm[0].pcHelpCh, "\xD7\xB0\xB1\xB8\xB2\xE2\xCA\xD4");
    EXPECT_EQ(gbkToUtf8(szEquHelpChip[1].pcHelpCh), "芯片复位控制（软复位）测试");
    EXPECT_EQ(gbkToUtf8(szEquHelpManuinfo[4].pcHelpCh), "电子标签ID内容 ");
    // The EDID port help carries full-width colons even in its English text.
    EXPECT_EQ(gbkToUtf8(szEquHelpEdid[2].pcHelpEn), "VGA：0,HDMI0：1,HDMI1：2");
}

void expectRow(const EQU_KEY_HELP_INFO_S &r, const char *key, const char *en, const char *chUtf8)
{
    EXPECT_STREQ(r.pcKey, key);
    EXPECT_STREQ(r.pcHelpEn, en);
    if (chUtf8 != nullptr) {
        EXPECT_EQ(gbkToUtf8(r.pcHelpCh), chUtf8);
    }
}

// Rows whose wording operators and scripts know, odd spellings and blanks included.
TEST(HelpTables, KnownRowsKeptLetterForLetter)
{
    expectRow(szEquHelpComm[1], "display", "dispaly information", "相应信息显示");
    expectRow(szEquHelpComm[14], "slot", "slot : 0 ~ 2    /all ", "槽位号");
    expectRow(szEquHelpRtc[5], "time", "Time Formate: hh:mm:ss", "时间输入格式: hh:mm:ss");
    expectRow(szEquHelpHarddisk[8], "harddisk presetn all test", "get harddisk present all",
              nullptr);
    expectRow(szEquHelpClear[2], "format ", "flash format test", nullptr);
}

// The eMMC partitions follow each other from "loader" to "panic" in slot
// order, each starting where the previous one ends; other slots are zero.
TEST(PartitionTables, EmmcLayoutIsContiguousInSlotOrder)
{
    const EQU_PART_INFO_S *t = gstPartInfo_K5T2B01;
    EXPECT_STREQ(t[0].pcName, "emmc");
    EXPECT_EQ(t[0].u64Size, 0x200000000ULL);
    std::string names;
    uint64_t end = 0;
    for (int slot = 1; slot < EQU_PART_SLOT_NUM; slot++) {
        if (t[slot].pcName == nullptr) {
            EXPECT_EQ(t[slot].u64Size + t[slot].u64Offset, 0u) << slot;
            continue;
        }
        names += std::to_string(slot) + ":" + t[slot].pcName + " ";
        EXPECT_EQ(t[slot].u64Offset, end) << slot;
        end = t[slot].u64Offset + t[slot].u64Size;
    }
    EXPECT_EQ(names, "1:loader 2:uboot 3:trust 4:env 5:backenv 6:kernel 7:weblogo 8:cfg "
                     "9:program 10:dapa 19:reserved_1 24:panic ");
    EXPECT_EQ(t[24].u64Size, 1909ULL << 20);
    EXPECT_LE(end, t[0].u64Size);
}

// The serial-flash layout is not in offset order by slot, but its
// partitions tile the 16 MiB chip exactly.
TEST(PartitionTables, SerialFlashLayoutTilesTheChip)
{
    const EQU_PART_INFO_S *t = gstPartInfo_NVR740;
    EXPECT_STREQ(t[0].pcName, "chip");
    EXPECT_STREQ(t[11].pcName, "ActiveX");
    std::vector<EQU_PART_INFO_S> parts(t + 1, t + EQU_PART_SLOT_NUM);
    std::erase_if(parts, [](const EQU_PART_INFO_S &p) { return p.pcName == nullptr; });
    ASSERT_EQ(parts.size(), 8u);
    std::sort(parts.begin(), parts.end(), [](const EQU_PART_INFO_S &a, const EQU_PART_INFO_S &b) {
        return a.u64Offset < b.u64Offset;
    });
    uint64_t end = 0;
    for (const EQU_PART_INFO_S &p : parts) {
        EXPECT_EQ(p.u64Offset, end) << p.pcName;
        end = p.u64Offset + p.u64Size;
    }
    EXPECT_EQ(end, t[0].u64Size);
}

}  // namespace
