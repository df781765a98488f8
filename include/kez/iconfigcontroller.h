// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "properties.h"

#include <QObject>
#include <QString>
#include <QStringList>

/// A validator of a configuration, to be implemented by applications.
///
/// An implementation calls insertError() once per fault and answers true only if it found none.
///
/// *Threads*: one thread at a time.
/// *Owns*: its list of errors. The list is never cleared: after two checks it holds the faults of
/// both, so use a new controller for each check.
/// *Fails*: never.
class KEZ_EXPORT IConfigController : public QObject {
    Q_OBJECT

public:
    explicit IConfigController(QObject* parent = nullptr);
    ~IConfigController() override;

    /// Whether `properties`, which may be null, is a legal configuration.
    virtual bool isLegalConfiguration(Properties* properties) = 0;

    /// The faults found so far, in order.
    virtual QStringList errors();

    virtual void insertError(const QString& error);

    /// The faults in one text. The separator is written only after a text that is not empty: an
    /// empty fault at the head of the list adds none.
    ///
    ///     {"a", "b"}, "; "  ->  a; b
    ///     {"", "b"}, "; "   ->  b
    virtual QString errorsToString(const QString& separator);

private:
    QStringList _errors;
};
