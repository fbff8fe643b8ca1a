#include "VersionRecord.h"

TQ_VERSION_RECORD(
    "Version: 6.0.6.5480\\n"
    "ProductName: Tessarine\\n"
    "FirmwareType: R204\\n"
    "FileName: UsageLog.dll\\n"
    "Purpose: Firmware\\n"
    "Timestamp: 20240815 16:24:50\\n");
