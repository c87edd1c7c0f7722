// The staging-folder names ("td_data_51234421") of the hand-off documents written during one
// command, in the order written. The connector launch sends them on; a cancelled command releases
// their folders.
#pragma once

#include <string>
#include <vector>

using HandOffList = std::vector<std::wstring>;
