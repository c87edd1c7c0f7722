// One numbering of every call a program makes into the simulated host: each Invoke and
// GetIDsOfNames of a FakeDispatch (Office, Outlook and the MAPI library reached by its ProgID are
// all built from it), each method of the simulated Outlook's MAPI session, and each MAPI function
// and method of the simulated mapi32.dll once its hook leads here (MapiSimSetCallHook). A test
// counts the calls of a clean run, then arms one ordinal to fail in a chosen style and runs again.
//
// Only the calls coming from outside the simulation count: what a fake calls while it serves a
// call (a handler reading another fake, the simulated Outlook writing a message file) is part of
// that one call. Single-threaded like the hosts' apartments.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

class CallSequence {
public:
    enum class Style {
        Plain,              // the call returns the injected failure
        Exception,          // an automation call: DISP_E_EXCEPTION, EXCEPINFO holding the failure
        DeferredException,  // the same, the EXCEPINFO filled in only when asked
        OutOfMemory,        // the call returns E_OUTOFMEMORY (MAPI_E_NOT_ENOUGH_MEMORY)
    };
    enum class Kind { Automation, Mapi };

    struct Call {
        std::wstring name;
        Kind kind;
    };

    struct Fault {
        HRESULT hr;
        Style style;
    };

    // The failure a plain or exception-style fault reports.
    static constexpr HRESULT kInjected = static_cast<HRESULT>(0x80041234);

    // Forgets the calls so far and disarms.
    static void Reset();
    // The `ordinal`-th call from now (counted from 1) fails in `style`.
    static void Arm(size_t ordinal, Style style);

    // Counts a call from outside the simulation; true with `fault` set when it is to fail.
    static bool Next(const wchar_t* name, Kind kind, Fault& fault) noexcept;

    // The calls since Reset, in order.
    static const std::vector<Call>& Calls() noexcept;
    // Whether the armed call was reached.
    static bool Fired() noexcept;

    // Marks a fake serving a call: calls made meanwhile are not counted.
    class Serving {
    public:
        Serving() noexcept;
        ~Serving();
        Serving(const Serving&) = delete;
        Serving& operator=(const Serving&) = delete;
    };
};
