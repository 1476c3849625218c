// Registration functions of the test modules, and the command table that
// every board of this family lists (in calling order). A module joins the
// table when it is built; the others keep their order.
#pragma once
#include <cstdint>

void EQU_Cmd_GPS(void);
void EQU_Cmd_Serial(void);
void EQU_Cmd_Watchdog(void);
void EQU_Cmd_Button(void);
void EQU_Cmd_Led(void);
void EQU_Cmd_Rtc(void);
void EQU_Cmd_ManuInfo(void);
void EQU_Cmd_Version(void);
void EQU_Cmd_IP(void);
void EQU_Cmd_MacAddr(void);
void EQU_Cmd_NetPing(void);
void EQU_Cmd_NetMode(void);
void EQU_Cmd_NetLink(void);
void EQU_Cmd_NetLoopback(void);

// Board peripherals: chips, temperatures and heaters, alarms, software, power supplies.
void EQU_Cmd_Temperature(void);
void EQU_Cmd_Alarm(void);
void EQU_Cmd_Chip(void);
void EQU_Cmd_Software(void);
void EQU_Cmd_Power(void);

// Board peripherals: HDMI EDID, PCIe links and lanes, CPU information (the
// last stands in no table).
void EQU_Cmd_EDID(void);
void EQU_Cmd_Pcie(void);
void EQU_Cmd_x4tox2(void);
void EQU_Cmd_CpuInfo(void);

// Storage: disks, eSATA, USB sticks, shipping-state wipe, run-time record, RAM flags.
void EQU_Cmd_Runtime(void);
void EQU_Cmd_Clear(void);
void EQU_Cmd_Usb(void);
void EQU_Cmd_Harddisk(void);
void EQU_Cmd_Esata(void);
void EQU_Cmd_Ram(void);  // built, in no board's table

// clang-format off
#define EQU_CMD_TBL_K5T2B01 \
    EQU_Cmd_GPS, \
    EQU_Cmd_Runtime, \
    EQU_Cmd_Clear, \
    EQU_Cmd_Rtc, \
    EQU_Cmd_IP, \
    EQU_Cmd_ManuInfo, \
    EQU_Cmd_Version, \
    EQU_Cmd_Serial, \
    EQU_Cmd_Temperature, \
    EQU_Cmd_Alarm, \
    EQU_Cmd_Watchdog, \
    EQU_Cmd_Button, \
    EQU_Cmd_Led, \
    EQU_Cmd_Usb, \
    EQU_Cmd_Chip, \
    EQU_Cmd_MacAddr, \
    EQU_Cmd_NetPing, \
    EQU_Cmd_NetMode, \
    EQU_Cmd_NetLink, \
    EQU_Cmd_NetLoopback, \
    EQU_Cmd_EDID, \
    EQU_Cmd_Pcie, \
    EQU_Cmd_Harddisk, \
    EQU_Cmd_Esata, \
    EQU_Cmd_Software, \
    EQU_Cmd_Power, \
    EQU_Cmd_x4tox2
// clang-format on

// The LED module's flashing worker: the interactive loop starts it once and
// it runs for the life of the process.
void *EQU_CmdProc_LedFlick(void *pArg);

// The serial module's RS-485 ends and its rate setting: no rule reaches the
// master and slave on these boards, so a harness starts them from here.
// Setting a rate (or starting a master) stops a running slave.
uint32_t EQU_Serial_SetBaudRate(uint32_t u32Rate);
uint32_t EQU_Serial_485Slave(uint32_t u32Tty);
uint32_t EQU_Serial_485Master(uint32_t u32Tty, uint32_t u32Len, uint32_t u32Num,
                              uint32_t u32Content);

// The slot-status reading of the older board's PCIe slot list: no rule
// installs it; parameter 0 is the slot (0 or 1).
uint64_t EQU_CmdProc_PcieGetSlotStatus(struct CLI_CMD_PARA_S *pstCmdPara);

// Storage: the run-time reset that the clear command also makes, and the
// disk routines that EQU_FormatDisk (equ_common) drives. 0 or 200.
uint32_t EQU_ResetRuntime(void);
uint32_t EQU_HdPresent(uint64_t ulCabinet, uint64_t ulSlot, uint8_t *pucPresent);
uint32_t EQU_GetDiskName(uint64_t ulCabinet, uint64_t ulSlot, char *pcName);  // 16 bytes
uint32_t EQU_HD_FormatSector(uint64_t ulSlot);
