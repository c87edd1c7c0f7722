// Which Office application loaded the add-in. The numbers, with their gap before 7, are sent to
// the connector as the start-application number and must stay as they are.
#pragma once

#include <cstdint>

enum HostKind : int32_t {
    kHostNotConnected = 0,
    kHostOutlook = 1,
    kHostWord = 2,
    kHostExcel = 3,
    kHostPowerPoint = 4,
    kHostOther = 7,
};
