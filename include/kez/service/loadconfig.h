// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/configuration.h>
#include <kez/iconfigcontroller.h>

#include <QString>

#include <functional>
#include <memory>
#include <vector>

/// Loading of a configuration together with its validation.
///
/// *Threads*: any thread; the validators are used in the calling one.
/// *Owns*: nothing.
/// *Fails*: throws Exception, as said at the function.
namespace KezService {

/// Makes the validators of one load. They have to be new each time, since an IConfigController
/// never forgets its errors.
using ConfigValidators = std::function<std::vector<std::unique_ptr<IConfigController>>()>;

/// Makes one validator of each of these types.
///
///     validatorsOf<ProcessLogController, SectionLogController, ShopController>()
template <typename... Controllers>
ConfigValidators validatorsOf()
{
    return [] {
        std::vector<std::unique_ptr<IConfigController>> validators;
        (validators.push_back(std::make_unique<Controllers>()), ...);
        return validators;
    };
}

/// The largest configuration file that is read unless another limit is given, in bytes.
inline constexpr qint64 MaxConfigSize = qint64{16} * 1024 * 1024;

/// The configuration in the file at `path`, as Config::load() reads it, after all validators have
/// passed it. Only a regular file of at most `maxSize` bytes is read. Nothing is logged.
///
/// Throws Exception with one line per fault, each once and with the path: why the file cannot be
/// read, or all that the validators find. It is a fault, too, if a validator refuses the
/// configuration without a reason, or throws.
KEZ_SERVICE_EXPORT std::shared_ptr<Config> loadConfig(const QString& path,
                                                      const QString& version = QString(),
                                                      const ConfigValidators& validators = {},
                                                      qint64 maxSize = MaxConfigSize);

} // namespace KezService
