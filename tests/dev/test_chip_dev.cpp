// The chip module's access library that no chip of these boards uses yet,
// and the MII registers, against the simulated board: write-and-read-back
// over I2C with and without the reset, plug-in card chip counts, PCI
// configuration bytes, and MII requests that never reach a host interface.
#include <gtest/gtest.h>

#include <string>

#include "equ_chip.h"
#include "equ_common.h"
#include "sim_helpers.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class ChipLibrary : public BoardTest {};

TEST_F(ChipLibrary, WriteReadBackOverI2c)
{
    put("i2c/1/0x48/0x03", "0x4b\n");
    EXPECT_EQ(0u, EQU_ChipTestByIIC(2, 0, 0, 1, 0x48, 3, 0x5a));
    EXPECT_EQ("0x0000004b\n", read("i2c/1/0x48/0x03"));
    EXPECT_TRUE(logged("ioctl /dev/hal_misc 0x40609 bus=1 addr=0x48 reg=0x3 data=0x5a len=1 -> 0"));
    // A reset that does not clear the register fails mode 1.
    CaptureStdout();
    EXPECT_EQ(200u, EQU_ChipTestByIIC(2, 0, 1, 1, 0x48, 3, 0x5a));
    EXPECT_EQ("\r\nFailed ulVal = 0x5a ulCheckValue = 0x5a", GetCapturedStdout());
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x70103 pos=0 chip=2 zero=0 -> 0"));
}

TEST_F(ChipLibrary, PlugInCardChipCounts)
{
    put("storcard/1/kind", "1\n");  // position 5
    put("storcard/2/kind", "0\n");  // position 6
    put("subcard/0/type", "8\n");   // position 7
    uint32_t u32Num = 99;
    EXPECT_EQ(0u, Equ_GetSpcBoard_ChipNum(5, 32, &u32Num));
    EXPECT_EQ(4u, u32Num);
    EXPECT_EQ(1, giStorType);
    EXPECT_EQ(0u, Equ_GetSpcBoard_ChipNum(6, 32, &u32Num));
    EXPECT_EQ(0, giStorType);
    EXPECT_EQ(200u, Equ_GetSpcBoard_ChipNum(6, 40, &u32Num));
    EXPECT_EQ(204, giStorType);
    EXPECT_EQ(0u, Equ_GetSpcBoard_ChipNum(7, 40, &u32Num));
    EXPECT_EQ(3u, u32Num);
    CaptureStdout();
    EXPECT_EQ(200u, Equ_GetSpcBoard_ChipNum(8, 40, &u32Num));
    EXPECT_EQ(200u, Equ_GetSpcBoard_ChipNum(9, 40, &u32Num));
    EXPECT_EQ("\r\nFailed to get sub_dev info, maybe it is not online ", GetCapturedStdout());
    EXPECT_EQ(3u, u32Num);
}

TEST_F(ChipLibrary, PciConfigBytesLeastSignificantFirst)
{
    put("sys/bus/pci/devices/0000:01:00.0/config", std::string("\x86\x80\x34\x12", 4));
    EQU_PCI_DEV_S stDev{1, 0, 0};
    uint32_t u32Val = 0;
    EXPECT_EQ(0u, EQU_ReadPciConfig(&stDev, 1, 3, &u32Val));
    EXPECT_EQ(0x123480u, u32Val);
    CaptureStdout();
    EXPECT_EQ(200u, EQU_ReadPciConfig(&stDev, 0, 5, &u32Val));
    EXPECT_EQ("\r\nthe length can't over the 4", GetCapturedStdout());
}

// Only the state's interfaces answer; MII fails only below zero.
TEST_F(ChipLibrary, MiiRegistersStayInTheState)
{
    uint32_t u32Val = 0;
    EXPECT_EQ(0u, EQU_Mdio_Write(1, 1, 0, 0x4140));
    EXPECT_EQ(0u, EQU_Mdio_Read(1, 1, 0, &u32Val));
    EXPECT_EQ(0x4140u, u32Val);
    EXPECT_EQ("0x4140\n", read("mdio/eth1/0x01/0x00"));
    put("fail/ioctl.eth1.0x8948", "ret=1\n");
    EXPECT_EQ(0u, EQU_Mdio_Read(1, 1, 0, &u32Val));
    CaptureStdout();
    EXPECT_EQ(200u, EQU_Mdio_Read(0, 1, 0, &u32Val));
    EXPECT_EQ("\r\nfailed read mdio [0x1:0x0]No such device", GetCapturedStdout());
    EXPECT_TRUE(logged("ioctl eth0 0x8948 phy=0x1 reg=0x0 -> -1 errno=ENODEV"));
}
