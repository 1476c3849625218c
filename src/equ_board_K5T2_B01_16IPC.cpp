// Board record of the K5T2-B01 16-channel variant, registered before main.
#include "equ_board_k5t2b01.h"

static const EQU_LED_INFO_S gszLedList_NVRK5T2B01_16[] = {EQU_LED_LIST_K5T2B01};
static const EQU_CHIP_INFO_S gszChipList_NVRK5T2B01_16[] = {EQU_CHIP_LIST_K5T2B01};
static const uint8_t gszRs485Port2Tty_NVRK5T2B01_16[8] = {EQU_RS485_MAP_K5T2B01};
static const EQU_CMD_REG_PF gstCmdTbl_NVRK5T2B01_16[] = {EQU_CMD_TBL_K5T2B01};

static EQU_BOARD_DESC_S gstEquBoard_NVRK5T2B01_16;
static EQU_BOARD_DESC_S *gpstBoardDescTbl_NVRK5T2B01_16[1] = {&gstEquBoard_NVRK5T2B01_16};
static EQU_BOARD_TBL_S gstBoardTbl_NVRK5T2B01_16 = {gpstBoardDescTbl_NVRK5T2B01_16, 1};

// Third in the registry: the variants are registered B03, B02, B01, B04.
static uint32_t EQU_BoardInit_K5T2_B01(void)
{
    return EQU_BoardInitK5T2B01(&gstEquBoard_NVRK5T2B01_16, 0x44130109, gszLedList_NVRK5T2B01_16,
                                gszChipList_NVRK5T2B01_16, gszRs485Port2Tty_NVRK5T2B01_16,
                                gstCmdTbl_NVRK5T2B01_16, &gstBoardTbl_NVRK5T2B01_16);
}

// A constructor cannot hand back a status; a failed add has already said so.
__attribute__((constructor(103))) static void EQU_BoardInit_K5T2_B01_Ctor(void)
{
    (void)EQU_BoardInit_K5T2_B01();
}
