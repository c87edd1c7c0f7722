#include "common/ComError.h"

#include <new>

void ThrowComError(HRESULT hr) { throw ComError(hr); }

HRESULT HResultFromCaughtException() noexcept {
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
