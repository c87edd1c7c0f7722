// Property streams, snapshot tables, the shared IMAPIProp behaviour and the property copy.
#include "tools/mapisim/SimObjects.h"

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <algorithm>
#include <cstring>

namespace mapisim {
namespace {

// Frees a MAPI buffer (and everything linked to it) at the end of a scope unless released.
class BufferOwner {
public:
    explicit BufferOwner(void* p = nullptr) : m_p(p) {}
    ~BufferOwner() { MAPIFreeBuffer(m_p); }
    BufferOwner(const BufferOwner&) = delete;
    BufferOwner& operator=(const BufferOwner&) = delete;
    void* get() const { return m_p; }
    void** put() {
        MAPIFreeBuffer(m_p);
        m_p = nullptr;
        return &m_p;
    }
    void* release() { return std::exchange(m_p, nullptr); }

private:
    void* m_p;
};

template <class T>
HRESULT Allocate(size_t bytes, T** out) {
    *out = nullptr;
    return MAPIAllocateBuffer(static_cast<ULONG>(bytes), reinterpret_cast<void**>(out));
}

template <class T>
HRESULT AllocateMore(size_t bytes, void* parent, T** out) {
    *out = nullptr;
    return MAPIAllocateMore(static_cast<ULONG>(bytes), parent, reinterpret_cast<void**>(out));
}

bool IsString(ULONG type) { return type == PT_UNICODE || type == PT_STRING8; }

// The tag a list of all properties reports: strings in the form the caller asked for.
ULONG ReportedTag(const Property& prop, bool unicode) {
    ULONG type = PROP_TYPE(prop.tag);
    if (!IsString(type & ~MV_FLAG)) {
        return prop.tag;
    }
    return CHANGE_PROP_TYPE(prop.tag, (type & MV_FLAG) | (unicode ? PT_UNICODE : PT_STRING8));
}

HRESULT MakeTagArray(const std::vector<ULONG>& tags, LPSPropTagArray* out) {
    HRESULT hr = Allocate(CbNewSPropTagArray(tags.size()), out);
    if (FAILED(hr)) {
        return hr;
    }
    (*out)->cValues = static_cast<ULONG>(tags.size());
    std::copy(tags.begin(), tags.end(), (*out)->aulPropTag);
    return S_OK;
}

HRESULT MakeProblems(const std::vector<SPropProblem>& problems, LPSPropProblemArray* out) {
    if (!out) {
        return S_OK;
    }
    *out = nullptr;
    if (problems.empty()) {
        return S_OK;
    }
    HRESULT hr = Allocate(CbNewSPropProblemArray(problems.size()), out);
    if (FAILED(hr)) {
        return hr;
    }
    (*out)->cProblem = static_cast<ULONG>(problems.size());
    std::copy(problems.begin(), problems.end(), (*out)->aProblem);
    return S_OK;
}

class PropertyStream final
    : public ComObject<PropertyStream, LiveCount::NotCounted,
                       Implements<IStream, IID_IStream, IID_ISequentialStream>>,
      LiveObject {
public:
    PropertyStream(std::vector<BYTE> content, bool writable,
                   std::function<HRESULT(const std::vector<BYTE>&)> commit, IUnknown* owner)
        : m_data(std::move(content)),
          m_writable(writable),
          m_commit(std::move(commit)),
          m_owner(owner) {}

    HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* read) override {
        MAPISIM_CALL(L"PropertyStream::Read")
        if (!pv) {
            return STG_E_INVALIDPOINTER;
        }
        size_t available = m_position < m_data.size() ? m_data.size() - m_position : 0;
        ULONG count = static_cast<ULONG>(std::min<size_t>(cb, available));
        if (count) {
            memcpy(pv, m_data.data() + m_position, count);
        }
        m_position += count;
        if (read) {
            *read = count;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* written) override try {
        MAPISIM_CALL(L"PropertyStream::Write")
        if (!m_writable) {
            return STG_E_ACCESSDENIED;
        }
        if (!pv) {
            return STG_E_INVALIDPOINTER;
        }
        if (m_position + cb > m_data.size()) {
            m_data.resize(m_position + cb);
        }
        memcpy(m_data.data() + m_position, pv, cb);
        m_position += cb;
        if (written) {
            *written = cb;
        }
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin,
                                   ULARGE_INTEGER* newPosition) override {
        MAPISIM_CALL(L"PropertyStream::Seek")
        LONGLONG base = origin == STREAM_SEEK_SET   ? 0
                        : origin == STREAM_SEEK_CUR ? static_cast<LONGLONG>(m_position)
                        : origin == STREAM_SEEK_END ? static_cast<LONGLONG>(m_data.size())
                                                    : -1;
        if (base < 0 || base + move.QuadPart < 0) {
            return STG_E_INVALIDFUNCTION;
        }
        m_position = static_cast<size_t>(base + move.QuadPart);
        if (newPosition) {
            newPosition->QuadPart = m_position;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override try {
        MAPISIM_CALL(L"PropertyStream::SetSize")
        if (!m_writable) {
            return STG_E_ACCESSDENIED;
        }
        m_data.resize(static_cast<size_t>(size.QuadPart));
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* dest, ULARGE_INTEGER cb, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override {
        MAPISIM_CALL(L"PropertyStream::CopyTo")
        if (!dest) {
            return STG_E_INVALIDPOINTER;
        }
        size_t available = m_position < m_data.size() ? m_data.size() - m_position : 0;
        ULONG count = static_cast<ULONG>(std::min<ULONGLONG>(cb.QuadPart, available));
        ULONG done = 0;
        HRESULT hr = count ? dest->Write(m_data.data() + m_position, count, &done) : S_OK;
        m_position += count;
        if (read) {
            read->QuadPart = count;
        }
        if (written) {
            written->QuadPart = done;
        }
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override {
        MAPISIM_CALL(L"PropertyStream::Commit")
        return m_writable && m_commit ? m_commit(m_data) : S_OK;
    }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        MAPISIM_CALL(L"PropertyStream::LockRegion")
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        MAPISIM_CALL(L"PropertyStream::UnlockRegion")
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
        MAPISIM_CALL(L"PropertyStream::Stat")
        if (!stat) {
            return STG_E_INVALIDPOINTER;
        }
        memset(stat, 0, sizeof(*stat));
        stat->type = STGTY_STREAM;
        stat->cbSize.QuadPart = m_data.size();
        stat->grfMode = m_writable ? STGM_READWRITE : STGM_READ;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override {
        MAPISIM_CALL(L"PropertyStream::Clone")
        if (stream) {
            *stream = nullptr;
        }
        return STG_E_INVALIDFUNCTION;
    }

private:
    std::vector<BYTE> m_data;
    size_t m_position = 0;
    bool m_writable;
    std::function<HRESULT(const std::vector<BYTE>&)> m_commit;
    ComPtr<IUnknown> m_owner;
};

class SnapshotTable final : public ComObject<SnapshotTable, LiveCount::NotCounted,
                                             Implements<IMAPITable, IID_IMAPITable>>,
                            LiveObject {
public:
    SnapshotTable(std::vector<PropertyList> rows, bool unicode)
        : m_rows(std::move(rows)), m_unicode(unicode) {
        m_columns = AllColumns();
    }

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override {
        if (error) {
            *error = nullptr;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPMAPIADVISESINK, ULONG*) override {
        MAPISIM_CALL(L"SnapshotTable::Advise")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetStatus(ULONG* status, ULONG* type) override {
        MAPISIM_CALL(L"SnapshotTable::GetStatus")
        if (!status || !type) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *status = TBLSTAT_COMPLETE;
        *type = TBLTYPE_SNAPSHOT;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray tags, ULONG) override try {
        MAPISIM_CALL(L"SnapshotTable::SetColumns")
        if (!tags) {
            return MAPI_E_INVALID_PARAMETER;
        }
        m_columns.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE QueryColumns(ULONG flags, LPSPropTagArray* tags) override try {
        MAPISIM_CALL(L"SnapshotTable::QueryColumns")
        if (!tags) {
            return MAPI_E_INVALID_PARAMETER;
        }
        return MakeTagArray(flags & TBL_ALL_COLUMNS ? AllColumns() : m_columns, tags);
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG, ULONG* count) override {
        MAPISIM_CALL(L"SnapshotTable::GetRowCount")
        if (!count) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *count = static_cast<ULONG>(m_rows.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG count, LONG* sought) override {
        MAPISIM_CALL(L"SnapshotTable::SeekRow")
        LONG base = origin == BOOKMARK_BEGINNING ? 0
                    : origin == BOOKMARK_CURRENT ? static_cast<LONG>(m_position)
                    : origin == BOOKMARK_END     ? static_cast<LONG>(m_rows.size())
                                                 : -1;
        if (base < 0) {
            return MAPI_E_INVALID_BOOKMARK;
        }
        LONG target = std::clamp<LONG>(base + count, 0, static_cast<LONG>(m_rows.size()));
        if (sought) {
            *sought = target - base;
        }
        m_position = static_cast<ULONG>(target);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG numerator, ULONG denominator) override {
        MAPISIM_CALL(L"SnapshotTable::SeekRowApprox")
        if (!denominator) {
            return MAPI_E_INVALID_PARAMETER;
        }
        m_position =
            static_cast<ULONG>(static_cast<ULONGLONG>(m_rows.size()) * numerator / denominator);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryPosition(ULONG* row, ULONG* numerator,
                                            ULONG* denominator) override {
        MAPISIM_CALL(L"SnapshotTable::QueryPosition")
        if (!row || !numerator || !denominator) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *row = m_position;
        *numerator = m_position;
        *denominator = static_cast<ULONG>(m_rows.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction, BOOKMARK, ULONG) override {
        MAPISIM_CALL(L"SnapshotTable::FindRow")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet, ULONG) override {
        MAPISIM_CALL(L"SnapshotTable::SortTable")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet*) override {
        MAPISIM_CALL(L"SnapshotTable::QuerySortOrder")
        return MAPI_E_NO_SUPPORT;
    }
    // Rows forward from the cursor; each row's values are a buffer of their own, so the caller
    // frees them row by row and then the row set, as with any MAPI table.
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG flags, LPSRowSet* rows) override try {
        MAPISIM_CALL(L"SnapshotTable::QueryRows")
        if (!rows) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *rows = nullptr;
        if (count < 0) {
            return MAPI_E_NO_SUPPORT;
        }
        ULONG available = static_cast<ULONG>(m_rows.size()) - m_position;
        ULONG n = std::min<ULONG>(static_cast<ULONG>(count), available);
        BufferOwner set;
        HRESULT hr = MAPIAllocateBuffer(CbNewSRowSet(n), set.put());
        if (FAILED(hr)) {
            return hr;
        }
        auto* rowSet = static_cast<LPSRowSet>(set.get());
        rowSet->cRows = 0;
        for (ULONG i = 0; i < n; ++i) {
            LPSPropValue values = nullptr;
            hr = Allocate(sizeof(SPropValue) * (m_columns.empty() ? 1 : m_columns.size()), &values);
            if (FAILED(hr)) {
                break;
            }
            SRow& row = rowSet->aRow[rowSet->cRows++];
            row.ulAdrEntryPad = 0;
            row.cValues = static_cast<ULONG>(m_columns.size());
            row.lpProps = values;
            for (size_t c = 0; c < m_columns.size(); ++c) {
                ToPropValue(m_rows[m_position + i], m_columns[c], m_unicode, false, values,
                            values[c]);
            }
        }
        if (FAILED(hr)) {
            for (ULONG i = 0; i < rowSet->cRows; ++i) {
                MAPIFreeBuffer(rowSet->aRow[i].lpProps);
            }
            return hr;
        }
        if (!(flags & TBL_NOADVANCE)) {
            m_position += n;
        }
        *rows = static_cast<LPSRowSet>(set.release());
        return S_OK;
    } catch (...) {
        return CaughtError();
    }
    HRESULT STDMETHODCALLTYPE Abort() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) override {
        MAPISIM_CALL(L"SnapshotTable::ExpandRow")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) override {
        MAPISIM_CALL(L"SnapshotTable::CollapseRow")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG, ULONG, ULONG* status) override {
        MAPISIM_CALL(L"SnapshotTable::WaitForCompletion")
        if (status) {
            *status = TBLSTAT_COMPLETE;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) override {
        MAPISIM_CALL(L"SnapshotTable::GetCollapseState")
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) override {
        MAPISIM_CALL(L"SnapshotTable::SetCollapseState")
        return MAPI_E_NO_SUPPORT;
    }

private:
    // Every property some row has, in the order first met.
    std::vector<ULONG> AllColumns() const {
        std::vector<ULONG> columns;
        for (const PropertyList& row : m_rows) {
            for (const auto& [id, prop] : row) {
                ULONG tag = ReportedTag(prop, m_unicode);
                if (std::find(columns.begin(), columns.end(), tag) == columns.end()) {
                    columns.push_back(tag);
                }
            }
        }
        return columns;
    }

    std::vector<PropertyList> m_rows;
    bool m_unicode;
    std::vector<ULONG> m_columns;
    ULONG m_position = 0;
};

std::vector<BYTE> StreamContent(const Property& prop) {
    std::vector<BYTE> content = prop.data;
    ULONG type = PROP_TYPE(prop.tag);
    // String streams end with the terminating zero, as a store's body streams do.
    content.resize(content.size() + (type == PT_UNICODE ? 2 : (type == PT_STRING8 ? 1 : 0)), 0);
    return content;
}

}  // namespace

HRESULT CreatePropertyStream(std::vector<BYTE> content, bool writable,
                             std::function<HRESULT(const std::vector<BYTE>&)> commit,
                             IUnknown* owner, IStream** stream) try {
    *stream = MakeComObject<PropertyStream>(std::move(content), writable, std::move(commit), owner)
                  .Detach();
    return S_OK;
} catch (...) {
    *stream = nullptr;
    return CaughtError();
}

HRESULT CreateSnapshotTable(std::vector<PropertyList> rows, bool unicode, IMAPITable** table) try {
    *table = MakeComObject<SnapshotTable>(std::move(rows), unicode).Detach();
    return S_OK;
} catch (...) {
    *table = nullptr;
    return CaughtError();
}

HRESULT PropertyHost::GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                               LPSPropValue* values) try {
    if (!count || !values) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *count = 0;
    *values = nullptr;
    bool unicode = flags & MAPI_UNICODE;
    std::vector<ULONG> wanted;
    if (tags) {
        wanted.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    } else {
        for (const auto& [id, prop] : props) {
            wanted.push_back(ReportedTag(prop, unicode));
        }
    }
    BufferOwner array;
    HRESULT hr = MAPIAllocateBuffer(static_cast<ULONG>(sizeof(SPropValue) * (wanted.size() + 1)),
                                    array.put());
    if (FAILED(hr)) {
        return hr;
    }
    auto* out = static_cast<LPSPropValue>(array.get());
    bool errors = false;
    for (size_t i = 0; i < wanted.size(); ++i) {
        errors |= !ToPropValue(props, wanted[i], unicode, true, out, out[i]);
    }
    *count = static_cast<ULONG>(wanted.size());
    *values = static_cast<LPSPropValue>(array.release());
    return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
} catch (...) {
    return CaughtError();
}

HRESULT PropertyHost::GetPropList(ULONG flags, LPSPropTagArray* tags) try {
    if (!tags) {
        return MAPI_E_INVALID_PARAMETER;
    }
    std::vector<ULONG> all;
    for (const auto& [id, prop] : props) {
        all.push_back(ReportedTag(prop, flags & MAPI_UNICODE));
    }
    return MakeTagArray(all, tags);
} catch (...) {
    return CaughtError();
}

HRESULT PropertyHost::OpenProperty(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* unknown) try {
    if (!unknown || !iid) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *unknown = nullptr;
    ULONG type = PROP_TYPE(tag);
    if (!IsEqualIID(*iid, IID_IStream) || !IsByteStringType(type) || type == PT_CLSID) {
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    }
    auto it = props.find(PROP_ID(tag));
    Property current{tag, {}, {}};
    if (it != props.end() && !(flags & MAPI_CREATE)) {
        if (!IsString(type) || !IsString(PROP_TYPE(it->second.tag))) {
            if (PROP_TYPE(it->second.tag) != type) {
                return MAPI_E_NOT_FOUND;
            }
            current = it->second;
        } else {
            // The stored string in the form the tag asks for.
            SPropValue value;
            BufferOwner parent;
            HRESULT hr = MAPIAllocateBuffer(1, parent.put());
            if (FAILED(hr)) {
                return hr;
            }
            ToPropValue(props, tag, type == PT_UNICODE, false, parent.get(), value);
            const BYTE* text = type == PT_UNICODE
                                   ? reinterpret_cast<const BYTE*>(value.Value.lpszW)
                                   : reinterpret_cast<const BYTE*>(value.Value.lpszA);
            size_t bytes =
                type == PT_UNICODE ? wcslen(value.Value.lpszW) * 2 : strlen(value.Value.lpszA);
            current.data.assign(text, text + bytes);
        }
    } else if (!(flags & MAPI_CREATE)) {
        return MAPI_E_NOT_FOUND;
    }
    bool writable = flags & (MAPI_MODIFY | MAPI_CREATE);
    PropertyList* list = &props;
    auto commit = [list, tag, type](const std::vector<BYTE>& content) -> HRESULT {
        Property stored{tag, content, {}};
        size_t unit = type == PT_UNICODE ? 2 : (type == PT_STRING8 ? 1 : 0);
        while (unit && stored.data.size() >= unit &&
               std::all_of(stored.data.end() - unit, stored.data.end(),
                           [](BYTE b) { return b == 0; })) {
            stored.data.resize(stored.data.size() - unit);
        }
        (*list)[PROP_ID(tag)] = std::move(stored);
        return S_OK;
    };
    IStream* stream = nullptr;
    HRESULT hr = CreatePropertyStream(StreamContent(current), writable, commit, owner, &stream);
    *unknown = stream;
    return hr;
} catch (...) {
    return CaughtError();
}

HRESULT PropertyHost::SetProps(ULONG count, LPSPropValue values,
                               LPSPropProblemArray* problems) try {
    if (!values && count) {
        return MAPI_E_INVALID_PARAMETER;
    }
    std::vector<SPropProblem> failed;
    for (ULONG i = 0; i < count; ++i) {
        HRESULT hr = FromPropValue(values[i], props);
        if (FAILED(hr)) {
            failed.push_back({i, values[i].ulPropTag, hr});
        }
    }
    return MakeProblems(failed, problems);
} catch (...) {
    return CaughtError();
}

HRESULT PropertyHost::DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) try {
    if (!tags) {
        return MAPI_E_INVALID_PARAMETER;
    }
    for (ULONG i = 0; i < tags->cValues; ++i) {
        props.erase(PROP_ID(tags->aulPropTag[i]));
    }
    return MakeProblems({}, problems);
} catch (...) {
    return CaughtError();
}

HRESULT PropertyHost::GetNamesFromIDs(LPSPropTagArray* tags, LPGUID guid, ULONG, ULONG* count,
                                      LPMAPINAMEID** result) try {
    if (!tags || !count || !result) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *count = 0;
    *result = nullptr;
    std::vector<ULONG> wanted;
    bool all = *tags == nullptr;
    if (all) {
        for (size_t i = 0; i < names.size(); ++i) {
            if (!guid || IsEqualGUID(*guid, names[i].guid)) {
                wanted.push_back(PROP_TAG(PT_UNSPECIFIED, kFirstNamedId + i));
            }
        }
    } else {
        wanted.assign((*tags)->aulPropTag, (*tags)->aulPropTag + (*tags)->cValues);
    }
    BufferOwner array;
    HRESULT hr = MAPIAllocateBuffer(static_cast<ULONG>(sizeof(LPMAPINAMEID) * (wanted.size() + 1)),
                                    array.put());
    if (FAILED(hr)) {
        return hr;
    }
    auto* out = static_cast<LPMAPINAMEID*>(array.get());
    bool errors = false;
    for (size_t i = 0; i < wanted.size(); ++i) {
        out[i] = nullptr;
        ULONG id = PROP_ID(wanted[i]);
        if (id < kFirstNamedId || id - kFirstNamedId >= names.size()) {
            errors = true;
            continue;
        }
        const NamedProperty& name = names[id - kFirstNamedId];
        LPMAPINAMEID entry = nullptr;
        hr = AllocateMore(sizeof(MAPINAMEID), out, &entry);
        if (SUCCEEDED(hr)) {
            hr = AllocateMore(sizeof(GUID), out, &entry->lpguid);
        }
        if (FAILED(hr)) {
            return hr;
        }
        *entry->lpguid = name.guid;
        entry->ulKind = name.kind;
        if (name.kind == MNID_STRING) {
            hr = AllocateMore((name.name.size() + 1) * sizeof(wchar_t), out,
                              &entry->Kind.lpwstrName);
            if (FAILED(hr)) {
                return hr;
            }
            wcscpy(entry->Kind.lpwstrName, name.name.c_str());
        } else {
            entry->Kind.lID = name.id;
        }
        out[i] = entry;
    }
    if (all) {
        hr = MakeTagArray(wanted, tags);
        if (FAILED(hr)) {
            return hr;
        }
    }
    *count = static_cast<ULONG>(wanted.size());
    *result = static_cast<LPMAPINAMEID*>(array.release());
    return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
} catch (...) {
    return CaughtError();
}

HRESULT PropertyHost::GetIDsFromNames(ULONG count, LPMAPINAMEID* requested, ULONG flags,
                                      LPSPropTagArray* tags) try {
    if (!tags) {
        return MAPI_E_INVALID_PARAMETER;
    }
    *tags = nullptr;
    std::vector<ULONG> result;
    bool errors = false;
    if (count == 0 || !requested) {
        for (size_t i = 0; i < names.size(); ++i) {
            result.push_back(PROP_TAG(PT_UNSPECIFIED, kFirstNamedId + i));
        }
        return MakeTagArray(result, tags);
    }
    for (ULONG i = 0; i < count; ++i) {
        const MAPINAMEID* name = requested[i];
        if (!name || !name->lpguid || (name->ulKind == MNID_STRING && !name->Kind.lpwstrName) ||
            (name->ulKind != MNID_ID && name->ulKind != MNID_STRING)) {
            result.push_back(PROP_TAG(PT_ERROR, 0));
            errors = true;
            continue;
        }
        NamedProperty wanted;
        wanted.guid = *name->lpguid;
        wanted.kind = name->ulKind;
        if (name->ulKind == MNID_ID) {
            wanted.id = name->Kind.lID;
        } else {
            wanted.name = name->Kind.lpwstrName;
        }
        auto it = std::find(names.begin(), names.end(), wanted);
        if (it == names.end() && (flags & MAPI_CREATE) && names.size() < 0xFFFE - kFirstNamedId) {
            names.push_back(wanted);
            it = names.end() - 1;
        }
        if (it == names.end()) {
            result.push_back(PROP_TAG(PT_ERROR, 0));
            errors = true;
        } else {
            result.push_back(PROP_TAG(PT_UNSPECIFIED, kFirstNamedId + (it - names.begin())));
        }
    }
    HRESULT hr = MakeTagArray(result, tags);
    return FAILED(hr) ? hr : (errors ? MAPI_W_ERRORS_RETURNED : S_OK);
} catch (...) {
    return CaughtError();
}

HRESULT CopyProperties(const PropertyList& source, const std::vector<NamedProperty>& names,
                       IMAPIProp* dest, const std::set<ULONG>& excluded) try {
    BufferOwner array;
    HRESULT hr = MAPIAllocateBuffer(static_cast<ULONG>(sizeof(SPropValue) * (source.size() + 1)),
                                    array.put());
    if (FAILED(hr)) {
        return hr;
    }
    auto* values = static_cast<LPSPropValue>(array.get());
    ULONG count = 0;
    for (const auto& [id, prop] : source) {
        if (excluded.count(id)) {
            continue;
        }
        ULONG destTag = prop.tag;
        if (id >= kFirstNamedId) {
            if (id - kFirstNamedId >= names.size()) {
                continue;  // a named id without a name cannot be carried over
            }
            const NamedProperty& name = names[id - kFirstNamedId];
            MAPINAMEID request{};
            GUID guid = name.guid;
            request.lpguid = &guid;
            request.ulKind = name.kind;
            if (name.kind == MNID_STRING) {
                request.Kind.lpwstrName = const_cast<LPWSTR>(name.name.c_str());
            } else {
                request.Kind.lID = name.id;
            }
            LPMAPINAMEID requests[] = {&request};
            BufferOwner tags;
            hr = dest->GetIDsFromNames(1, requests, MAPI_CREATE,
                                       reinterpret_cast<LPSPropTagArray*>(tags.put()));
            if (hr != S_OK) {
                return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
            }
            destTag = CHANGE_PROP_TYPE(static_cast<LPSPropTagArray>(tags.get())->aulPropTag[0],
                                       PROP_TYPE(prop.tag));
        }
        if (prop.data.size() <= kGetPropsLimit) {
            ToPropValue(source, prop.tag, true, false, values, values[count]);
            values[count++].ulPropTag = destTag;
            continue;
        }
        ComPtr<IStream> stream;
        hr = dest->OpenProperty(destTag, &IID_IStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY,
                                reinterpret_cast<LPUNKNOWN*>(stream.put()));
        ULONG written = 0;
        if (SUCCEEDED(hr)) {
            hr = stream->Write(prop.data.data(), static_cast<ULONG>(prop.data.size()), &written);
        }
        if (SUCCEEDED(hr)) {
            hr = stream->Commit(STGC_DEFAULT);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    return count ? dest->SetProps(count, values, nullptr) : S_OK;
} catch (...) {
    return CaughtError();
}

}  // namespace mapisim
