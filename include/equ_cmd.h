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
    EQU_Cmd_ManuInfo, \
    EQU_Cmd_Version, \
    EQU_Cmd_Serial, \
    EQU_Cmd_Watchdog, \
    EQU_Cmd_Button, \
    EQU_Cmd_Led, \
    EQU_Cmd_Usb, \
    EQU_Cmd_Harddisk, \
    EQU_Cmd_Esata
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

// Storage: the run-time reset that the clear command also makes, and the
// disk routines that EQU_FormatDisk (equ_common) drives. 0 or 200.
uint32_t EQU_ResetRuntime(void);
uint32_t EQU_HdPresent(uint64_t ulCabinet, uint64_t ulSlot, uint8_t *pucPresent);
uint32_t EQU_GetDiskName(uint64_t ulCabinet, uint64_t ulSlot, char *pcName);  // 16 bytes
uint32_t EQU_HD_FormatSector(uint64_t ulSlot);
