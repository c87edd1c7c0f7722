// The one exception type thrown below the add-in's COM boundaries: a failed HRESULT, most often
// E_OUTOFMEMORY from a string allocation. Every COM method, callback, window procedure and DLL
// export catches it (and std::bad_alloc) and turns it back into an HRESULT or a quiet ending.
#pragma once

#include <windows.h>

#include <exception>
#include <new>

class ComError : public std::exception {
public:
    explicit ComError(HRESULT hr) noexcept : m_hr(hr) {}
    HRESULT Error() const noexcept { return m_hr; }
    const char* what() const noexcept override { return "COM error"; }

private:
    HRESULT m_hr;
};

[[noreturn]] inline void ThrowComError(HRESULT hr) { throw ComError(hr); }

inline void ThrowIfFailed(HRESULT hr) {
    if (FAILED(hr)) {
        ThrowComError(hr);
    }
}

// Call only inside a catch block: the HRESULT that stands for the exception in flight.
inline HRESULT HResultFromCaughtException() noexcept {
    try {
        throw;
    } catch (const ComError& error) {
        return error.Error();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}
