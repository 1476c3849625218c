// What the four K5T2-B01 board variants have in common. Each variant keeps
// its own record and its own copies of the tables (named after the record),
// filled from the lists here, so the variants cannot drift apart.
#pragma once
#include <cstddef>
#include <cstdio>

#include "equ_board.h"
#include "equ_cmd.h"
#include "equ_common.h"

#define EQU_LED_LIST_K5T2B01                                                                       \
    {0, "run", 2, 7}, {4, "alarm", 2, 7}, {10, "heat", 2, 7},                                      \
    {                                                                                              \
        2, "hd", 2, 7                                                                              \
    }

// Chip types index the chip descriptor table; positions 0 mainboard, 14 netboard.
#define EQU_CHIP_LIST_K5T2B01                                                                      \
    {46, 1, {0}}, {48, 2, {0, 14}}, {49, 1, {14}}, {45, 3, {14, 14, 14}},                          \
    {                                                                                              \
        50, 1,                                                                                     \
        {                                                                                          \
            14                                                                                     \
        }                                                                                          \
    }

// RS-485 port 0 is ttyS6, port 1 ttyS1.
#define EQU_RS485_MAP_K5T2B01 6, 1, 0, 0, 0, 0, 0, 0

// Clears the record, fills the family's values and registers it. Returns
// 0, or 200 when the registry could not take it (the tool then runs
// without this variant).
template <size_t L, size_t C, size_t M>
inline uint32_t EQU_BoardInitK5T2B01(EQU_BOARD_DESC_S *pstDesc, uint32_t u32BoardId,
                                     const EQU_LED_INFO_S (&astLed)[L],
                                     const EQU_CHIP_INFO_S (&astChip)[C],
                                     const uint8_t *pucRs485Map, const EQU_CMD_REG_PF (&apfnCmd)[M],
                                     EQU_BOARD_TBL_S *pstBoardTbl)
{
    *pstDesc = EQU_BOARD_DESC_S{};
    pstDesc->u32BoardId = u32BoardId;
    pstDesc->pcModel = "PLM7140";
    pstDesc->pcIdStr1 = "11000";
    pstDesc->pcIdStr3 = "01";
    pstDesc->pcIdStr4 = "01";
    pstDesc->ucRsv1 = 1;
    pstDesc->ucEthNum = 2;
    pstDesc->ucGeCopperNum = 20;
    pstDesc->ucFiberNum = 2;
    pstDesc->ucRsv2 = 3;
    pstDesc->ucUsbNum = 2;
    pstDesc->ucAlarmSlotNum = 1;
    pstDesc->ucAlarmInNum = 2;
    pstDesc->ucAlarmOutNum = 2;
    pstDesc->ucRs232Num = 1;
    pstDesc->ucRs485Num = 2;
    pstDesc->ucDdrNum = 2;
    pstDesc->ucResetKey = 1;
    pstDesc->pucRs485Port2Tty = pucRs485Map;
    pstDesc->pstPartInfo = gstPartInfo_K5T2B01;
    pstDesc->pfnCmdTbl = apfnCmd;
    pstDesc->u32CmdNum = M;
    pstDesc->pstLedList = astLed;
    pstDesc->u32LedNum = L;
    pstDesc->pstChipList = astChip;
    pstDesc->u32ChipNum = C;
    if (EQU_BoardDescAdd(pstBoardTbl) != EQU_OK) {
        printf("\r\nFailed to add board");
        return EQU_FAIL;
    }
    return EQU_OK;
}
