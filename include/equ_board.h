// Board description records and the board registry. Each board variant's
// record is filled and registered by a constructor before main; start-up
// selects the current one by the identifier the driver library reports.
#pragma once
#include <cstdint>
#include "equ_mtd_info.h"

typedef void (*EQU_CMD_REG_PF)(void);

struct EQU_LED_INFO_S {
    uint32_t u32LedNo;
    char szName[16];
    uint8_t ucAttr1;
    uint8_t ucAttr2;
};

#define EQU_CHIP_MAX_INST 16
struct EQU_CHIP_INFO_S {
    uint32_t u32ChipType;                      // index into the chip descriptor table
    uint32_t u32ChipNum;                       // instances, at most EQU_CHIP_MAX_INST
    uint32_t au32BoardPos[EQU_CHIP_MAX_INST];  // 0 mainboard, 14 netboard
};

struct EQU_BOARD_DESC_S {
    uint32_t u32BoardId;
    const char *pcModel;
    const char *pcIdStr1;
    const char *pcIdStr2;
    const char *pcIdStr3;
    const char *pcIdStr4;
    uint8_t ucRsv1;
    uint8_t ucEthNum;
    uint8_t ucFeCopperNum;
    uint8_t ucGeCopperNum;
    uint8_t ucFiberNum;
    uint8_t ucRsv2;
    uint8_t ucRsv3;
    uint8_t ucUsbNum;
    uint8_t ucAlarmSlotNum;
    uint8_t ucAlarmInNum;
    uint8_t ucAlarmOutNum;
    uint8_t ucRs232Num;
    uint8_t ucRs485Num;
    uint8_t ucRs422Num;
    uint8_t aucRsv1[2];
    uint8_t ucDdrNum;
    uint8_t ucResetKey;
    uint8_t ucPowerKey;
    uint8_t aucRsv2[4];
    void *pRsv;
    const uint8_t *pucRs422Port2Tty;
    const uint8_t *pucRs485Port2Tty;
    const EQU_PART_INFO_S *pstPartInfo;
    const EQU_CMD_REG_PF *pfnCmdTbl;
    uint32_t u32CmdNum;
    const EQU_LED_INFO_S *pstLedList;
    uint32_t u32LedNum;
    const EQU_CHIP_INFO_S *pstChipList;
    uint32_t u32ChipNum;
    const void *pstPcieInfoList;
    uint32_t u32PcieChnNum;
    const void *pstPciDevInfoList;
    uint32_t u32PciDevNum;
};

struct EQU_BOARD_TBL_S {
    EQU_BOARD_DESC_S **ppstBoardDesc;
    uint32_t u32Cnt;
};

extern EQU_BOARD_DESC_S *gpstEquBoardDesc;
extern EQU_BOARD_TBL_S gstEquBoardTbl;
extern unsigned long gulBoardIdx;

uint32_t EQU_BoardDescAdd(EQU_BOARD_TBL_S *pstBoardTbl);
uint32_t EQU_BoardDescCreat(uint32_t u32BoardId, EQU_BOARD_DESC_S **ppstBoardDesc);
void EQU_BoardDescDestroy(void);
