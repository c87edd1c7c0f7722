#include "common/PropertyMap.h"

void PropertyMap::Add(const wchar_t* name, const wchar_t* value, uint32_t flag) {
    if (!name || !*name || !value) {
        return;
    }
    PropertyEntry& entry = m_entries[name];
    entry.value = value;
    entry.flag = flag;
}

const PropertyEntry* PropertyMap::Find(const wchar_t* name) const {
    if (!name) {
        return nullptr;
    }
    auto it = m_entries.find(name);
    return it == m_entries.end() ? nullptr : &it->second;
}
