// The properties of one captured file: name to value text and a 32-bit marker, kept in ascending
// order of plain UTF-16 code units (case-sensitive, a prefix first). The hand-off document lists
// them in this order.
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct PropertyEntry {
    std::wstring value;
    uint32_t flag = 0;
};

class PropertyMap {
public:
    using Entries = std::map<std::wstring, PropertyEntry>;

    // Adds or replaces: the last write of a name wins. An empty or null name, or a null value,
    // adds nothing. May throw std::bad_alloc.
    void Add(const wchar_t* name, const wchar_t* value, uint32_t flag = 1);

    const PropertyEntry* Find(const wchar_t* name) const;
    size_t size() const noexcept { return m_entries.size(); }
    bool empty() const noexcept { return m_entries.empty(); }
    Entries::const_iterator begin() const noexcept { return m_entries.begin(); }
    Entries::const_iterator end() const noexcept { return m_entries.end(); }

private:
    // std::wstring compares by wchar_t values, which on Windows are the unsigned UTF-16 code
    // units: exactly the order the connector expects.
    Entries m_entries;
};
