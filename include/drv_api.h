// Our declarations of the board driver library's calls (libdriver.so).
// Every call returns 0 on success.
#pragma once
#include <cstdint>

#define DRV_SYS_GET_BOARD_ID   0x1400  // DRV_SysCtl: u32 board identifier out
#define DRV_PERP_SET_PORT_MODE 0x1600
#define DRV_PERP_GET_PORT_MODE 0x1601
#define DRV_PERP_GET_LINK      0x1605
#define DRV_PERP_MAIN_TEMP     0x160E
#define DRV_PERP_SET_TIMEZONE  0x1610
#define DRV_PERP_GET_TIMEZONE  0x1611
#define DRV_PERP_ALARM_IN      0x1618
#define DRV_PERP_ALARM_OUT     0x1619
#define DRV_PERP_WDT_INDICATE  0x1628
#define DRV_PERP_POWER_STATUS  0x1629
#define DRV_PERP_NET_TEMP      0x163C
#define DRV_DISK_FORMAT_PREP   0x1508

extern "C" {
int DRV_Init(int iParam);
int DRV_DeInit(void);
int DRV_SysCtl(uint32_t u32Req, void *pArg);
int DRV_PerpCtl(uint32_t u32Req, void *pArg);
int DRV_DiskCtl(uint32_t u32Req, void *pArg);
int DRV_BOARD_GetHdiskSlotNum(void);
int DRV_BOARD_GetHdiskLocalSlotNum(void);
int DRV_DevSupportHdPart(int iSizeGb);
int DRV_GPS_SetBaudRate(uint32_t u32Baud);
}

// The library names its local disk-slot query this way; it is a plain call.
#define DEV_GET_HDISK_LOCAL_SLOT_NUM() DRV_BOARD_GetHdiskLocalSlotNum()
