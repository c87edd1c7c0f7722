// The simulator's COM objects: property streams, snapshot tables, and the IMAPIProp behaviour the
// message and its attachments share.
#pragma once

#include <mapidefs.h>

#include <functional>
#include <set>

#include "common/ComPtr.h"
#include "tools/mapisim/SimModel.h"

namespace mapisim {

// Counts itself among the simulator's live objects for as long as it exists.
struct LiveObject {
    LiveObject() { ++g_liveObjects; }
    ~LiveObject() { --g_liveObjects; }
    LiveObject(const LiveObject&) = delete;
    LiveObject& operator=(const LiveObject&) = delete;
};

// A stream over one property's value. A writable stream stores its content back into the
// property on Commit; `owner` keeps the object holding the property alive meanwhile.
HRESULT CreatePropertyStream(std::vector<BYTE> content, bool writable,
                             std::function<HRESULT(const std::vector<BYTE>&)> commit,
                             IUnknown* owner, IStream** stream);

// A table over a snapshot of rows, such as a message's recipients or attachments.
HRESULT CreateSnapshotTable(std::vector<PropertyList> rows, bool unicode, IMAPITable** table);

// IMAPIProp on a property list whose named properties live in `names`.
struct PropertyHost {
    PropertyList& props;
    std::vector<NamedProperty>& names;
    IUnknown* owner;

    HRESULT GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values);
    HRESULT GetPropList(ULONG flags, LPSPropTagArray* tags);
    HRESULT OpenProperty(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* unknown);
    HRESULT SetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
    HRESULT DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems);
    HRESULT GetNamesFromIDs(LPSPropTagArray* tags, LPGUID guid, ULONG flags, ULONG* count,
                            LPMAPINAMEID** result);
    HRESULT GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags);
};

// Copies the properties of `source` (named ones under their names) onto `dest`, leaving out the
// property ids in `excluded`. Values too long for SetProps go through a stream.
HRESULT CopyProperties(const PropertyList& source, const std::vector<NamedProperty>& names,
                       IMAPIProp* dest, const std::set<ULONG>& excluded);

}  // namespace mapisim
