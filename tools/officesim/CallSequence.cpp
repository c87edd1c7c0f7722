#include "officesim/CallSequence.h"

namespace {

std::vector<CallSequence::Call> g_calls;
size_t g_armed = 0;  // none
CallSequence::Style g_style = CallSequence::Style::Plain;
bool g_fired = false;
int g_serving = 0;

}  // namespace

void CallSequence::Reset() {
    g_calls.clear();
    g_armed = 0;
    g_fired = false;
}

void CallSequence::Arm(size_t ordinal, Style style) {
    g_armed = ordinal;
    g_style = style;
}

bool CallSequence::Next(const wchar_t* name, Kind kind, Fault& fault) noexcept try {
    if (g_serving > 0) {
        return false;
    }
    g_calls.push_back(Call{name ? name : L"", kind});
    if (g_calls.size() != g_armed) {
        return false;
    }
    g_fired = true;
    fault = Fault{g_style == Style::OutOfMemory ? E_OUTOFMEMORY : kInjected, g_style};
    return true;
} catch (...) {
    return false;
}

const std::vector<CallSequence::Call>& CallSequence::Calls() noexcept { return g_calls; }

bool CallSequence::Fired() noexcept { return g_fired; }

CallSequence::Serving::Serving() noexcept { ++g_serving; }

CallSequence::Serving::~Serving() { --g_serving; }
