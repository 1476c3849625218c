// Request codes as the board's driver library and kernel drivers define
// them. Spelled here rather than taken from the tool's headers, so a wrong
// code in the tool meets an unknown request instead of agreeing with itself.
#pragma once
#include <cstdint>

namespace bsim::req {

// Driver library: DRV_SysCtl, DRV_PerpCtl, DRV_DiskCtl.
constexpr uint32_t kBoardId = 0x1400;
constexpr uint32_t kSetPortMode = 0x1600;
constexpr uint32_t kGetPortMode = 0x1601;
constexpr uint32_t kLinkState = 0x1605;
constexpr uint32_t kMainTemp = 0x160E;
constexpr uint32_t kSetTimezone = 0x1610;
constexpr uint32_t kGetTimezone = 0x1611;
constexpr uint32_t kAlarmIn = 0x1618;
constexpr uint32_t kAlarmOut = 0x1619;
constexpr uint32_t kWatchdogIndicate = 0x1628;
constexpr uint32_t kPowerStatus = 0x1629;
constexpr uint32_t kNetTemp = 0x163C;
constexpr uint32_t kDiskFormatPrep = 0x1508;

// /dev/hal_nvram
constexpr uint32_t kNvramGet = 0x40614;
constexpr uint32_t kNvramSet = 0x40615;
// /dev/hal_misc
constexpr uint32_t kI2cRead = 0x40608;
constexpr uint32_t kI2cWrite = 0x40609;
constexpr uint32_t kCpuRegRead = 0x70106;
constexpr uint32_t kCpuRegWrite = 0x70107;
constexpr uint32_t kSataRegRead = 0x40505;
// /dev/hal_gpio
constexpr uint32_t kGpioWrite = 0x40610;
constexpr uint32_t kGpioRead = 0x40611;
constexpr uint32_t kGpioMode = 0x4061F;
constexpr uint32_t kResetKey = 0x40636;
constexpr uint32_t kChipReset = 0x70103;
constexpr uint32_t kSubcardStatus = 0x40627;
constexpr uint32_t kSubcardType = 0x40628;
constexpr uint32_t kSubcardPcb = 0x40629;
// /dev/hal_rmc
constexpr uint32_t kRmcMode = 0x40113;
constexpr uint32_t kKeyPoll = 0x4010D;
constexpr uint32_t kKeyPollAlt = 0x4010C;
// /dev/hal_watchdog
constexpr uint32_t kWatchdogArm = 0x70108;
// /dev/hal_switch
constexpr uint32_t kSwitchRegRead = 0x40809;
// /dev/hal_sc
constexpr uint32_t kStorKind = 0x40622;
constexpr uint32_t kStorBoard = 0x30107;
constexpr uint32_t kStorPcb = 0x30100;
constexpr uint32_t kStorMcu = 0x30106;
constexpr uint32_t kStorStatus = 0x40626;
// /dev/hal_runtime
constexpr uint32_t kFirstUseGet = 0x30209;
constexpr uint32_t kFirstUseSet = 0x3020A;
constexpr uint32_t kTotalUsedGet = 0x3020B;
constexpr uint32_t kTotalUsedSet = 0x3020C;
constexpr uint32_t kRecordOn = 0x3020D;
constexpr uint32_t kRecordOff = 0x3020E;
// /dev/harddisk
constexpr uint32_t kDiskPresent = 0x40500;
constexpr uint32_t kDiskCapacity = 0x40510;
constexpr uint32_t kUsbInfo = 0x40504;

// /dev/rtc, /dev/rtc0, /dev/misc/rtc (the kernel's RTC_SET_TIME, RTC_RD_TIME)
constexpr uint32_t kRtcSetTime = 0x4024700A;
constexpr uint32_t kRtcReadTime = 0x80247009;

// Socket requests on the board's Ethernet interfaces (struct ifreq)
constexpr uint32_t kEthLoopback = 0x89F0;  // SIOCDEVPRIVATE: the driver's PHY loopback

}  // namespace bsim::req
