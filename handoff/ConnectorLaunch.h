// Starts the Desktop Connector by asking the shell to open a "talvorn:" URL naming the storage
// target, the host application and the staging folders to import. The add-in does not wait for the
// connector and learns nothing of the import's outcome.
#pragma once

#include <string>

#include "common/HandOffList.h"

class CTDCSettings;

// "talvorn:\\di$<target part>$startapp=<host>$files=<name>,<name>...". Without a matching target
// the target part is empty and the URL holds "$$". Throws on out of memory.
std::wstring BuildConnectorUrl(const CTDCSettings& settings, const HandOffList& list, int hostKind);

// Builds the URL and hands it to ShellExecuteExW. Returns 1 when the shell accepted it, 0 (after
// logging the system error) when not. Throws on out of memory.
int LaunchConnector(const CTDCSettings& settings, const HandOffList& list, int hostKind);
