// Board registry: every board variant's record is added before main by its
// own constructor; start-up then picks the record matching the identifier
// the driver reports. The registry owns only its pointer array (malloc'd);
// the records are static.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "equ_assert.h"
#include "equ_board.h"
#include "equ_common.h"

EQU_BOARD_DESC_S *gpstEquBoardDesc = nullptr;
EQU_BOARD_TBL_S gstEquBoardTbl = {nullptr, 0};
unsigned long gulBoardIdx = 0;

// The registry grows by exactly the records added: a new array each time,
// never spare room, so its size always equals u32Cnt.
uint32_t EQU_BoardDescAdd(EQU_BOARD_TBL_S *pstBoardTbl)
{
    EQU_ASSERT_AT(nullptr != pstBoardTbl, "((void *)0) != (pstBoardTbl)", "src/equ_board.c", 30);
    EQU_ASSERT_AT(0 != pstBoardTbl->u32Cnt, "0 != pstBoardTbl->u32Cnt", "src/equ_board.c", 31);
    if (pstBoardTbl->ppstBoardDesc == nullptr) {
        return EQU_FAIL;
    }

    const uint64_t ullSum = uint64_t(gstEquBoardTbl.u32Cnt) + pstBoardTbl->u32Cnt;
    if (ullSum > UINT32_MAX) {
        return uint32_t(-12);  // the count could not hold it: no room, as for malloc
    }
    auto **ppstNew = static_cast<EQU_BOARD_DESC_S **>(malloc(ullSum * sizeof(EQU_BOARD_DESC_S *)));
    if (ppstNew == nullptr) {
        return uint32_t(-12);
    }
    if (gstEquBoardTbl.ppstBoardDesc != nullptr) {
        memcpy(ppstNew, gstEquBoardTbl.ppstBoardDesc,
               gstEquBoardTbl.u32Cnt * sizeof(EQU_BOARD_DESC_S *));
        free(gstEquBoardTbl.ppstBoardDesc);
    }
    memcpy(ppstNew + gstEquBoardTbl.u32Cnt, pstBoardTbl->ppstBoardDesc,
           pstBoardTbl->u32Cnt * sizeof(EQU_BOARD_DESC_S *));
    gstEquBoardTbl.ppstBoardDesc = ppstNew;
    gstEquBoardTbl.u32Cnt = uint32_t(ullSum);
    return EQU_OK;
}

// An unknown identifier is not an error: the output keeps the last record
// compared, so the tool still comes up on the last registered board.
uint32_t EQU_BoardDescCreat(uint32_t u32BoardId, EQU_BOARD_DESC_S **ppstBoardDesc)
{
    if (ppstBoardDesc == nullptr) {
        return EQU_FAIL;
    }
    for (uint32_t i = 0; i < gstEquBoardTbl.u32Cnt; i++) {
        EQU_BOARD_DESC_S *pstDesc = gstEquBoardTbl.ppstBoardDesc[i];
        if (pstDesc == nullptr) {
            continue;
        }
        *ppstBoardDesc = pstDesc;
        if (pstDesc->u32BoardId == u32BoardId) {
            return EQU_OK;
        }
    }
    printf("\r\nnot find board 0x%x", u32BoardId);
    return EQU_OK;
}

void EQU_BoardDescDestroy(void)
{
    free(gstEquBoardTbl.ppstBoardDesc);
    gstEquBoardTbl.ppstBoardDesc = nullptr;
    gstEquBoardTbl.u32Cnt = 0;
}
