// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/caughtexception_p.h"

#include "service/kittexts_p.h"

#include <kez/exception.h>

#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <memory>
#include <typeinfo>

namespace KezService {

namespace {

/// The type of the exception that is being handled.
QString typeText()
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(
        type ? abi::__cxa_demangle(type->name(), nullptr, nullptr, &status) : nullptr, &std::free);
    return kitText("ExceptionOfType", QString::fromUtf8(name ? name.get() : "?"));
}

} // namespace

QString caughtText()
{
    try {
        throw;
    } catch (Exception* thrown) { // NOLINT(misc-throw-by-value-catch-by-reference): FilesQueue
        const std::unique_ptr<const Exception> owned(thrown);
        return owned ? owned->detail() : typeText();
    } catch (const Exception& thrown) {
        return thrown.detail();
    } catch (const std::exception& thrown) {
        return QString::fromLocal8Bit(thrown.what());
    } catch (...) {
        return typeText();
    }
}

} // namespace KezService
