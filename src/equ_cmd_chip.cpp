// Key-chip check: do the board's chips answer; with the chip access library
// of include/equ_chip.h.
//
// Commands:
//   test chipcheck mainboard|netboard
// Walks the board's chip list and runs each instance's test routine,
// printing one "ok" or "error" line per instance ("LM75_B" for the second
// instance of an entry with several). "mainboard" tests every instance,
// "netboard" only those on the net board.
// Pass: every tested chip answered. Fail: a chip's line says "error".
//
// Values:
//   <board type string>  mainboard or netboard
//
// Touches, per chip:
//   ATGM336H  /dev/ttyS9: TCFLSH 0x540B (argument 0), then one read of up to
//             1,024 bytes, which must hold the receiver's "$GPTXT,01,01,01"
//   LM75      /dev/hal_misc I2C read 0x40608, bus 1 (main board) or 2,
//             device 0x48, register 0
//   JMB575    /dev/hal_misc 0x40505 (port 0, register 0): the id in the top
//             12 bits must be 0x575
//   8370MB    /dev/hal_switch 0x40809, register 2 of switch 0, 1, 2
//   JL2101D   MII registers of PHY 1 behind eth1 (SIOCGMIIREG/SIOCSMIIREG):
//             register 0 keeps the test value 0x4140, then gets its own back
// The library also reaches /dev/hal_gpio 0x70103 (chip reset) and 0x40628
// (sub-card kind), /dev/hal_sc 0x40622 (storage-card kind), PCI
// configuration files under /sys/bus/pci/devices, /dev/mem, and the shell
// tools devmem and cat.
//
// Kept on purpose:
// - The 8370MB check replaces the value read with the expected one before
//   comparing: it proves that the switch answers, nothing more.
// - The JMB575 check goes on to the id test after a failed read, and leaves
//   /dev/hal_misc open; the GPS check leaves the port open after a failed
//   flush or when the text is missing. The board's tool has always done so.
// - Instance letters count the skipped instances too: the net board's
//   sensor is always LM75_B, whichever board is asked for.
// - The template builds "resetline", but no rule installs it: this build
//   has no reset-line command.
#include "equ_chip.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "equ_board.h"
#include "equ_cli_cmd.h"
#include "equ_cmd.h"
#include "equ_common.h"
#include "equ_help_info.h"

int giStorType;

namespace {

using ChipTestFn = uint32_t (*)(uint32_t u32Idx, uint32_t u32Pos, uint32_t u32Inst,
                                uint32_t u32Param1, uint32_t u32Param2, uint32_t u32Mode);

struct ChipDesc {
    char szName[16];
    uint32_t u32Param1;
    uint32_t u32Param2;
    ChipTestFn pfnTest;
};

constexpr size_t kChipTypes = 51;
constexpr const char *kGpsStartText = "$GPTXT,01,01,01";
constexpr size_t kGpsReadLen = 1024;
constexpr unsigned long kFlushReq = 0x540B;  // TCFLSH
constexpr unsigned long kSataRegRead = 0x40505;
constexpr unsigned long kSwitchRegRead = 0x40809;
constexpr unsigned long kChipResetReq = 0x70103;
constexpr unsigned long kSubCardKind = 0x40628;
constexpr unsigned long kStorCardKind = 0x40622;
constexpr uint8_t kLm75Addr = 0x48;
constexpr uint32_t kJl2101dEth = 1;
constexpr uint32_t kJl2101dPhy = 1;
constexpr size_t kPageSize = 4096;
constexpr const char *kDcCheckFile = "/tmp/dc_check";
constexpr const char *kDcAddressFile = "/tmp/dc_address";

constexpr EQU_OPEN_MSG_S kMsgOpenGps{"\r\nOpen gps (", ") failed"};
constexpr EQU_OPEN_MSG_S kMsgOpenBare{"\r\nFailed to open ", ""};
constexpr EQU_OPEN_MSG_S kMsgOpenSwitch{"\r\nopen ", " faild!"};
constexpr EQU_OPEN_MSG_S kMsgOpenSub{"\r\nfaild to open ", ""};
constexpr EQU_OPEN_MSG_S kMsgOpenPci{"\r\nfailed to open ", ""};

struct SataReq {
    uint64_t ulPort;
    uint64_t ulReg;
    uint32_t u32Val;
    uint32_t u32Zero;
};
static_assert(sizeof(SataReq) == 24 && offsetof(SataReq, u32Val) == 16);

struct SwitchReq {
    uint32_t u32Zero;
    uint32_t u32Reg;
    uint32_t u32Switch;
    uint32_t u32Val;
};
static_assert(sizeof(SwitchReq) == 16);

struct ChipResetReq {
    uint32_t u32Pos;
    uint32_t u32Idx;
    uint32_t u32Zero;
};
static_assert(sizeof(ChipResetReq) == 12);

struct CardKindReq {
    uint32_t u32Card;
    uint32_t u32Kind;
};
static_assert(sizeof(CardKindReq) == 8);

// ---- the chips of the boards ----

uint32_t EQU_ChipTestATGM336H(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)
{
    EQU_Node port(EQU_DEV_GPS, kMsgOpenGps);
    if (!port) {
        return EQU_FAIL;
    }
    sleep(1);
    if (port.request(kFlushReq, 0UL) != 0) {
        printf("\r\nioctl TCFLSH 0 failed");
        port.leak_open();  // see the header
        return EQU_FAIL;
    }
    sleep(2);
    char acBuf[kGpsReadLen] = {0};
    ssize_t n = read(port.fd(), acBuf, sizeof(acBuf));
    if (n <= 0) {
        printf("\r\nRead GPS msg fail. fd(%ld) error: %s.", static_cast<long>(port.fd()),
               strerror(errno));
        return EQU_FAIL;
    }
    if (memmem(acBuf, static_cast<size_t>(n), kGpsStartText, strlen(kGpsStartText)) != nullptr) {
        return EQU_OK;
    }
    printf("\r\nFind String Fail [%s]", kGpsStartText);
    port.leak_open();  // see the header
    return EQU_FAIL;
}

uint32_t EQU_ChipTestLM75(uint32_t, uint32_t u32Pos, uint32_t, uint32_t, uint32_t, uint32_t)
{
    uint32_t u32Val = 0;
    uint8_t ucBus = u32Pos == 0 ? 1 : 2;
    return EQU_I2C_Read(ucBus, kLm75Addr, 0, 1, &u32Val) == EQU_FAIL ? EQU_FAIL : EQU_OK;
}

uint32_t EQU_ChipTestJMB575(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)
{
    EQU_Node node(EQU_DEV_MISC, kMsgOpenBare);
    if (!node) {
        return EQU_FAIL;
    }
    SataReq stReq{0, 0, 0, 0};
    int iRet = node.request(kSataRegRead, &stReq);
    node.leak_open();  // see the header
    if (iRet != 0) {
        printf("\r\n\r\nFailed in %s at line %d ", "EQU_ChipTestJMB575", 2014);
    }
    if ((stReq.u32Val >> 20) == 0x575) {
        return EQU_OK;
    }
    printf("\r\n\r\nFailed in %s at line %d product ID 0x%x", "EQU_ChipTestJMB575", 2024,
           stReq.u32Val);
    return EQU_FAIL;
}

uint32_t EQU_ChipTest8370MB(uint32_t, uint32_t, uint32_t u32Inst, uint32_t u32Param1,
                            uint32_t u32Param2, uint32_t)
{
    EQU_Node node(EQU_DEV_SWITCH, kMsgOpenSwitch);
    if (!node) {
        return EQU_FAIL;
    }
    SwitchReq stReq{0, u32Param1, u32Inst, 0};
    if (node.request(kSwitchRegRead, &stReq) != 0) {
        printf("\r\nFailed to set Get SW Reg(%x) value fail, errno(%s)", u32Param1, node.error());
        return EQU_FAIL;
    }
    stReq.u32Val = u32Param2;  // a reachability check (see the header)
    if (stReq.u32Val != u32Param2) {
        printf("\r\nioctl: Read SW Reg phyid1 failed, RegVal: %u", stReq.u32Val);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_ChipTestJL2101D(uint32_t u32Idx, uint32_t, uint32_t, uint32_t u32Param1,
                             uint32_t u32Param2, uint32_t u32Mode)
{
    return EQU_ChipTestByMii(u32Idx, kJl2101dEth, u32Mode, kJl2101dPhy, u32Param1, u32Param2);
}

template <size_t N>
constexpr ChipDesc chip(const char (&acName)[N], uint32_t u32P1, uint32_t u32P2, ChipTestFn pfn)
{
    static_assert(N <= sizeof(ChipDesc::szName));
    ChipDesc st{};
    for (size_t i = 0; i < N; i++) {
        st.szName[i] = acName[i];
    }
    st.u32Param1 = u32P1;
    st.u32Param2 = u32P2;
    st.pfnTest = pfn;
    return st;
}

// Indexed by chip type; rows of types no board here carries stay empty.
constexpr std::array<ChipDesc, kChipTypes> chip_table(void)
{
    std::array<ChipDesc, kChipTypes> a{};
    a[45] = chip("8370MB", 2, 0x1c, EQU_ChipTest8370MB);
    a[46] = chip("ATGM336H", 0xff, 0xff, EQU_ChipTestATGM336H);
    a[48] = chip("LM75", 0xff, 0xff, EQU_ChipTestLM75);
    a[49] = chip("JMB575", 0xff, 0xff, EQU_ChipTestJMB575);
    a[50] = chip("JL2101D", 0, 0x4140, EQU_ChipTestJL2101D);
    return a;
}

constexpr std::array<ChipDesc, kChipTypes> gastChipDesc = chip_table();

}  // namespace

// ---- the access library ----

namespace {

// Write-and-read-back over any register access: read and keep, write the
// test value, reset the chip in mode 1, read back, restore.
template <class Read, class Write, class Reset>
uint32_t write_read_back(uint32_t u32Mode, uint32_t u32Val, Read read, Write write, Reset reset)
{
    uint32_t u32Saved = 0;
    uint32_t u32Got = 0;
    if (read(&u32Saved) != EQU_OK || write(u32Val) != EQU_OK) {
        return EQU_FAIL;
    }
    if (u32Mode == 1 && reset() != EQU_OK) {
        return EQU_FAIL;
    }
    if (read(&u32Got) != EQU_OK || write(u32Saved) != EQU_OK) {
        return EQU_FAIL;
    }
    // After a reset the register must have lost the test value.
    bool bOk = u32Mode == 1 ? u32Got != u32Val : u32Got == u32Val;
    if (!bOk) {
        printf("\r\nFailed ulVal = 0x%x ulCheckValue = 0x%x", u32Got, u32Val);
        return EQU_FAIL;
    }
    return EQU_OK;
}

// The sysfs path of a PCI function's file; false if it does not fit.
bool pci_path(const EQU_PCI_DEV_S *pstDev, const char *pcFile, char (&acPath)[64])
{
    int n = snprintf(acPath, sizeof(acPath), "/sys/bus/pci/devices/0000:%02x:%02x.%x/%s",
                     pstDev->ucBus, pstDev->ucDev, pstDev->ucFunc, pcFile);
    return n > 0 && static_cast<size_t>(n) < sizeof(acPath);
}

// Up to iLen characters of a file from iSkip on, converted in the base.
uint32_t read_number_at(const char *pcFile, off_t iSkip, size_t ulLen, int iBase,
                        const EQU_OPEN_MSG_S &stOpenMsg, uint32_t *pu32Val)
{
    EQU_Node file(pcFile, stOpenMsg, O_RDONLY);
    if (!file) {
        return EQU_FAIL;
    }
    char acNum[16] = {0};
    if (lseek(file.fd(), iSkip, SEEK_SET) != iSkip) {
        return EQU_FAIL;
    }
    ssize_t n = read(file.fd(), acNum, ulLen < sizeof(acNum) ? ulLen : sizeof(acNum) - 1);
    if (n <= 0) {
        return EQU_FAIL;
    }
    *pu32Val = static_cast<uint32_t>(strtoul(acNum, nullptr, iBase));
    return EQU_OK;
}

struct CardChips {
    uint32_t u32Type;
    uint32_t au32Num[4];  // Tq4416, Tq4408, Tqm36, Tqm34; 200: none listed
};

constexpr CardChips kCardChips[] = {
    {8, {0, 1, 200, 200}},  {32, {4, 2, 200, 200}}, {37, {0, 1, 200, 200}}, {38, {1, 0, 200, 200}},
    {39, {1, 0, 200, 200}}, {40, {200, 200, 3, 2}}, {41, {200, 200, 1, 1}}, {42, {200, 200, 3, 2}},
};

uint32_t card_chips(size_t ulCard, uint32_t u32Type, uint32_t *pu32Num)
{
    for (const CardChips &st : kCardChips) {
        if (st.u32Type == u32Type && st.au32Num[ulCard] != EQU_FAIL) {
            *pu32Num = st.au32Num[ulCard];
            return EQU_OK;
        }
    }
    return EQU_FAIL;
}

// The kind of plug-in card, from its node; 200 when it is not online.
uint32_t card_kind(const char *pcNode, const EQU_OPEN_MSG_S &stOpenMsg, unsigned long ulReq,
                   uint32_t u32Card, const char *pcOffline, uint32_t *pu32Kind)
{
    EQU_Node node(pcNode, stOpenMsg);
    if (!node) {
        return EQU_FAIL;
    }
    CardKindReq stReq{u32Card, 0};
    if (node.request(ulReq, &stReq) != 0) {
        printf("%s", pcOffline);
        return EQU_FAIL;
    }
    *pu32Kind = stReq.u32Kind;
    return EQU_OK;
}

}  // namespace

uint32_t EQU_ChipReset(uint32_t u32Idx, uint32_t u32Pos)
{
    EQU_Node node(EQU_DEV_GPIO, EQU_MSG_OPEN_FILE);
    if (!node) {
        return EQU_FAIL;
    }
    ChipResetReq stReq{u32Pos, u32Idx, 0};
    if (node.request(kChipResetReq, &stReq) != 0) {
        printf("\r\nreset chip failed, type %d, slot %d", u32Idx, u32Pos);
        return EQU_FAIL;
    }
    return EQU_OK;
}

uint32_t EQU_ChipTestByMii(uint32_t u32Idx, uint32_t u32Eth, uint32_t u32Mode, uint32_t u32Phy,
                           uint32_t u32Reg, uint32_t u32Val)
{
    return write_read_back(
        u32Mode, u32Val,
        [&](uint32_t *pu32) { return EQU_Mdio_Read(u32Eth, u32Phy, u32Reg, pu32); },
        [&](uint32_t u32) { return EQU_Mdio_Write(u32Eth, u32Phy, u32Reg, u32); },
        [&] { return EQU_ChipReset(u32Idx, u32Eth); });
}

uint32_t EQU_ChipTestByIIC(uint32_t u32Idx, uint32_t u32Pos, uint32_t u32Mode, uint8_t ucBus,
                           uint8_t ucDevAddr, uint8_t ucReg, uint32_t u32Val)
{
    return write_read_back(
        u32Mode, u32Val,
        [&](uint32_t *pu32) { return EQU_I2C_Read(ucBus, ucDevAddr, ucReg, 1, pu32); },
        [&](uint32_t u32) { return EQU_I2C_Write(ucBus, ucDevAddr, ucReg, u32); },
        [&] { return EQU_ChipReset(u32Idx, u32Pos); });
}

uint32_t EQU_ChipTestBySata(uint32_t u32Idx, uint32_t u32Pos, uint32_t u32Mode, uint32_t u32Param1,
                            uint32_t u32Param2)
{
    (void)u32Param2;
    if (u32Mode == 1) {
        EQU_ChipReset(u32Idx, u32Pos);
        sleep(5);  // the bridge needs this long to come back
    }
    EQU_Node node(EQU_DEV_MISC, EQU_MSG_OPEN_FILE);
    if (!node) {
        return EQU_FAIL;
    }
    for (int iTry = 0; iTry < 4; iTry++) {
        SataReq stReq{u32Pos, u32Param1, 0, 0};
        if (node.request(kSataRegRead, &stReq) == 0 && (stReq.u32Val >> 16) == 0x3826) {
            return EQU_OK;
        }
        sleep(1);
    }
    return EQU_FAIL;
}

uint32_t EQU_ReadPciConfig(const EQU_PCI_DEV_S *pstDev, uint32_t u32Off, uint32_t u32Len,
                           uint32_t *pu32Val)
{
    char acPath[64];
    if (u32Len > 4) {
        printf("\r\nthe length can't over the 4");
        return EQU_FAIL;
    }
    if (!pci_path(pstDev, "config", acPath)) {
        return EQU_FAIL;
    }
    EQU_Node file(acPath, kMsgOpenPci, O_RDONLY);
    uint8_t aucBuf[4] = {0};
    if (!file || pread(file.fd(), aucBuf, u32Len, u32Off) != static_cast<ssize_t>(u32Len)) {
        return EQU_FAIL;
    }
    uint32_t u32Val = 0;
    for (uint32_t i = u32Len; i > 0; i--) {
        u32Val = (u32Val << 8) | aucBuf[i - 1];
    }
    *pu32Val = u32Val;
    return EQU_OK;
}

uint32_t EQU_WritePciConfig(const EQU_PCI_DEV_S *pstDev, uint32_t u32Off, uint32_t u32Len,
                            uint32_t u32Val)
{
    char acPath[64];
    if (u32Len > 4) {
        printf("\r\nthe length can't over the 4");
        return EQU_FAIL;
    }
    if (!pci_path(pstDev, "config", acPath)) {
        return EQU_FAIL;
    }
    EQU_Node file(acPath, kMsgOpenPci, O_WRONLY);
    uint8_t aucBuf[4];
    for (uint32_t i = 0; i < 4; i++) {
        aucBuf[i] = static_cast<uint8_t>(u32Val >> (8 * i));
    }
    if (!file || pwrite(file.fd(), aucBuf, u32Len, u32Off) != static_cast<ssize_t>(u32Len)) {
        return EQU_FAIL;
    }
    return EQU_OK;
}

// The skipped characters are the "0x" and the high half of the 64-bit
// address; the rest is read as decimal, as it always has been.
uint32_t EQU_ReadPciAddr(const EQU_PCI_DEV_S *pstDev, uint32_t *pu32Val)
{
    char acPath[64];
    char acCmd[128];
    if (!pci_path(pstDev, "resource", acPath)) {
        return EQU_FAIL;
    }
    snprintf(acCmd, sizeof(acCmd), "cat %s > %s", acPath, kDcAddressFile);
    if (system(acCmd) != 0) {
        printf("\r\nfailed to open %s", acPath);
        return EQU_FAIL;
    }
    return read_number_at(kDcAddressFile, 10, 8, 10, kMsgOpenPci, pu32Val);
}

// The address is printed in decimal behind "0x": the format is the tool's
// own and is kept.
uint32_t EQU_MemRead_DC(uint32_t u32Addr, uint32_t *pu32Val)
{
    char acCmd[64];
    snprintf(acCmd, sizeof(acCmd), "devmem 0x%u %d > %s", u32Addr, 32, kDcCheckFile);
    if (system(acCmd) < 0) {
        printf("\r\nget dc_chip_check error");
        return EQU_FAIL;
    }
    return read_number_at(kDcCheckFile, 2, 8, 16, EQU_MSG_OPEN_FAILED, pu32Val);
}

namespace {

// The page at ulBase mapped for the access; bytes least significant first.
uint32_t mem_access(uint64_t ulBase, uint32_t u32Off, uint32_t u32Len, uint32_t *pu32Val,
                    bool bWrite)
{
    if (u32Len > 4 || u32Off > kPageSize - u32Len) {
        return EQU_FAIL;  // outside the one page mapped
    }
    EQU_Node mem("/dev/mem", EQU_MSG_OPEN_FAILED, O_RDWR, nullptr);
    if (!mem) {
        return EQU_FAIL;
    }
    int iProt = bWrite ? PROT_READ | PROT_WRITE : PROT_READ;
    void *pvMap = mmap(nullptr, kPageSize, iProt, MAP_SHARED, mem.fd(), static_cast<off_t>(ulBase));
    if (pvMap == MAP_FAILED) {
        return EQU_FAIL;
    }
    volatile uint8_t *pucReg = static_cast<volatile uint8_t *>(pvMap) + u32Off;
    uint32_t u32Val = 0;
    for (uint32_t i = 0; i < u32Len; i++) {
        if (bWrite) {
            pucReg[i] = static_cast<uint8_t>(*pu32Val >> (8 * i));
        } else {
            u32Val |= static_cast<uint32_t>(pucReg[i]) << (8 * i);
        }
    }
    if (munmap(pvMap, kPageSize) != 0) {
        printf(bWrite ? "\r\nfailed to unmmap 0x%08x" : "\r\nfailed to unmmap 0x%8x",
               static_cast<unsigned>(ulBase));
        return EQU_FAIL;
    }
    if (!bWrite) {
        *pu32Val = u32Val;
    }
    return EQU_OK;
}

}  // namespace

uint32_t EQU_MemRead(uint64_t ulBase, uint32_t u32Off, uint32_t u32Len, uint32_t *pu32Val)
{
    return mem_access(ulBase, u32Off, u32Len, pu32Val, false);
}

uint32_t EQU_MemWrite(uint64_t ulBase, uint32_t u32Off, uint32_t u32Len, uint32_t u32Val)
{
    return mem_access(ulBase, u32Off, u32Len, &u32Val, true);
}

uint32_t EQU_GetTq4416ChipNum(uint32_t u32Type, uint32_t *pu32Num)
{
    return card_chips(0, u32Type, pu32Num);
}

uint32_t EQU_GetTq4408ChipNum(uint32_t u32Type, uint32_t *pu32Num)
{
    return card_chips(1, u32Type, pu32Num);
}

uint32_t EQU_GetTqm36ChipNum(uint32_t u32Type, uint32_t *pu32Num)
{
    return card_chips(2, u32Type, pu32Num);
}

uint32_t EQU_GetTqm34ChipNum(uint32_t u32Type, uint32_t *pu32Num)
{
    return card_chips(3, u32Type, pu32Num);
}

uint32_t EQU_GetSubCardChipNum(uint32_t u32Pos, uint32_t u32Type, uint32_t *pu32Num)
{
    uint32_t u32Kind = 0;
    if (card_kind(EQU_DEV_GPIO, kMsgOpenSub, kSubCardKind, u32Pos - 7,
                  "\r\nFailed to get sub_dev info, maybe it is not online ", &u32Kind) != EQU_OK) {
        return EQU_FAIL;
    }
    return u32Kind == 8 ? EQU_GetTqm36ChipNum(u32Type, pu32Num)
                        : EQU_GetTqm34ChipNum(u32Type, pu32Num);
}

// The card index is position - 4 (sub-cards use position - 7): the storage
// card driver has always been asked so.
uint32_t EQU_GetStorCardChipNum(uint32_t u32Pos, uint32_t u32Type, uint32_t *pu32Num)
{
    uint32_t u32Kind = 0;
    if (card_kind(EQU_DEV_SC, kMsgOpenBare, kStorCardKind, u32Pos - 4,
                  "\r\nFailed to get stor_dev info, maybe it is not online ", &u32Kind) != EQU_OK) {
        return EQU_FAIL;
    }
    uint32_t u32Num = 0;
    uint32_t u32Ret = u32Kind == 1 ? EQU_GetTq4416ChipNum(u32Type, &u32Num)
                                   : EQU_GetTq4408ChipNum(u32Type, &u32Num);
    if (u32Ret == EQU_OK) {
        *pu32Num = u32Num;
    }
    bool bType32 = u32Ret == EQU_OK && u32Type == 32;
    giStorType = bType32 && u32Num == 2 ? 0 : bType32 && u32Num == 4 ? 1 : 204;
    return u32Ret;
}

uint32_t Equ_GetSpcBoard_ChipNum(uint32_t u32Pos, uint32_t u32Type, uint32_t *pu32Num)
{
    if (u32Pos == 7 || u32Pos == 8) {
        return EQU_GetSubCardChipNum(u32Pos, u32Type, pu32Num);
    }
    if (u32Pos == 5 || u32Pos == 6) {
        return EQU_GetStorCardChipNum(u32Pos, u32Type, pu32Num);
    }
    return EQU_FAIL;
}

// ---- the check ----

namespace {

// Plug-in boards report themselves present: the check runs on what is there.
uint32_t Equ_BoardOnline(uint32_t u32Pos)
{
    (void)u32Pos;
    return EQU_OK;
}

void Equ_BoardTpOffLinePrint(uint32_t u32Pos)
{
    const char *pcMsg = "unkown boardtype";
    switch (u32Pos) {
    case 0:
        pcMsg = "MainBoard Status is offline";
        break;
    case 5:
        pcMsg = "StorCard_0 Status is offline";
        break;
    case 6:
        pcMsg = "StorCard_1 Status is offline";
        break;
    case 7:
        pcMsg = "SubCard_0 Status is offline";
        break;
    case 8:
        pcMsg = "SubCard_1 Status is offline";
        break;
    default:
        break;
    }
    printf("\r\nerror: %s", pcMsg);
}

// One instance of a chip-list entry: 0 if it passed or was not asked for.
uint32_t check_instance(uint32_t u32Idx, const EQU_CHIP_INFO_S &stEntry, uint32_t u32Inst,
                        uint32_t u32Pos, uint32_t u32Mode)
{
    static constexpr ChipDesc kNoChip{};
    const ChipDesc &stDesc =
        stEntry.u32ChipType < kChipTypes ? gastChipDesc[stEntry.u32ChipType] : kNoChip;
    uint32_t u32InstPos = stEntry.au32BoardPos[u32Inst];
    if (u32Pos != 0 && u32Pos != u32InstPos) {
        return EQU_OK;
    }
    if (stDesc.pfnTest == nullptr) {
        printf("\r\n%-12s slot %d chipcheck test ............error --> got a null ptr function",
               stDesc.szName, u32Inst);
        return EQU_FAIL;
    }
    bool bOk = stDesc.pfnTest(u32Idx, u32InstPos, u32Inst, stDesc.u32Param1, stDesc.u32Param2,
                              u32Mode) == EQU_OK;
    const char *pcResult = bOk ? "ok" : "error";
    if (stEntry.u32ChipNum < 2) {
        printf("\r\n%14s............%s", stDesc.szName, pcResult);
    } else {
        printf("\r\n%12s_%c............%s", stDesc.szName, 'A' + u32Inst, pcResult);
    }
    return bOk ? EQU_OK : EQU_FAIL;
}

// Every instance is tested, whatever failed before it.
uint32_t EQU_ChipCheck(uint32_t u32Pos, uint32_t u32Mode)
{
    if (Equ_BoardOnline(u32Pos) != EQU_OK) {
        Equ_BoardTpOffLinePrint(u32Pos);
        return EQU_FAIL;
    }
    uint32_t u32Errors = 0;
    for (uint32_t i = 0; i < gpstEquBoardDesc->u32ChipNum; i++) {
        const EQU_CHIP_INFO_S &stEntry = gpstEquBoardDesc->pstChipList[i];
        uint32_t u32Count = std::min<uint32_t>(stEntry.u32ChipNum, EQU_CHIP_MAX_INST);
        for (uint32_t u32Inst = 0; u32Inst < u32Count; u32Inst++) {
            u32Errors += check_instance(i, stEntry, u32Inst, u32Pos, u32Mode) == EQU_OK ? 0 : 1;
        }
    }
    return u32Errors != 0 ? EQU_FAIL : EQU_OK;
}

// ---- validators ----

uint64_t EQU_CmdCheck_BoardPos(const char *pcToken, CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    if (strcmp(pcToken, "mainboard") != 0 && strcmp(pcToken, "netboard") != 0) {
        printf("\r\ncmd can only be mainboard/netboard,please check");
        return EQU_FAIL;
    }
    return EQU_OK;
}

// ---- handlers ----

uint64_t EQU_CmdProc_ChipCheck(CLI_CMD_PARA_S *pstCmdPara)
{
    uint32_t u32Pos = 0;
    uint64_t ulNum = 0;
    CLI_GetAllParaNum(pstCmdPara, &ulNum);
    if (ulNum == 1) {
        char acBoard[CLI_MAX_TOKEN_LEN] = {0};
        CLI_GetOctStringPara(pstCmdPara, 0, acBoard);
        u32Pos = EQU_GetBoardPos(acBoard);
        if (u32Pos > 254) {
            printf("\r\nunsupport board type %s, please check", acBoard);
            return EQU_FAIL;
        }
    }
    return EQU_ChipCheck(u32Pos, 0);
}

// The handler of "resetline", which no rule installs (see the header).
[[maybe_unused]] uint64_t EQU_CmdProc_Resetline(CLI_CMD_PARA_S *pstCmdPara)
{
    (void)pstCmdPara;
    return EQU_OK;
}

}  // namespace

// ---- registration ----

void EQU_Cmd_Chip(void)
{
    CLI_CMD_TEMPLET_S *pT = CLI_NewCmdTemplet();
    CLI_AddKey(pT, 1, "test", HELP_COMM_TEST);
    CLI_AddKey(pT, 2, "chipcheck", HELP_CHIP_CHIPCHECK);
    CLI_AddKey(pT, 3, "resetline", HELP_CHIP_RESETLINE);
    CLI_AddPara(pT, 4, CLI_STRING, EQU_CmdCheck_BoardPos, HELP_COMM_BOARD_TYPE);
    CLI_InstallCmd(pT, 4, "$1 $2 $4", EQU_CmdProc_ChipCheck);  // test chipcheck mainboard
    CLI_FreeCmdTemplet(pT, 4);
}
