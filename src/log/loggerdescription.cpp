// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/failure_p.h"
#include "kez/identity.h"
#include "kez/logger.h"
#include "log/banner_p.h"
#include "log/logring_p.h"

#include <QJsonDocument>
#include <QMetaEnum>

namespace {

void writeBannerHead(Logger& logger, const QString& title, const QString& version)
{
    const QString marker = QStringLiteral("%1");
    writeBannerBox(logger, title.contains(marker) ? QString(title).replace(marker, version)
                                                  : title + QStringLiteral(" v") + version);
    logger.info(Kez::defaultCopyright());
}

QString address(quintptr value)
{
    return QStringLiteral("0x%1").arg(value, 0, 16);
}

QString address(const void* pointer)
{
    return address(reinterpret_cast<quintptr>(pointer));
}

QString amount(qulonglong number, const char* unitKey)
{
    return QString::number(number) + QLatin1Char(' ') + Failure::message(unitKey);
}

} // namespace

void Logger::logBanner(const QString& title, const QString& version, const Properties* properties)
{
    const BannerScope banner(*this);
    writeBannerHead(*this, title, version);
    if (properties) {
        writeBannerProperties(*this, *properties, [](const QString& key, qsizetype width) {
            return key.leftJustified(width, QLatin1Char(' '));
        });
    }
}

void Logger::logBanner(const QString& title, const QString& version, const QJsonDocument* json)
{
    const BannerScope banner(*this);
    writeBannerHead(*this, title, version);
    if (!json)
        return;
    info(Failure::message("InitialJsonStream"));
    const QString text = QString::fromUtf8(json->toJson(QJsonDocument::Indented));
    for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        info(line);
}

QString Logger::toString() const
{
    const void* file = nullptr;
    bool isOpen = false;
    unsigned int last = 0;
    const RingLock lock(*_spRing);
    if (_spRing->isHeldByThisThread()) {
        file = _spRing->file.get();
        isOpen = _spRing->file && _spRing->file->isOpen();
        last = _spRing->last;
    } else {
        Ring::reportDeadlock("toString", "file not shown");
    }
    const char* const level = QMetaEnum::fromType<LoggerLevel::LogLevel>().valueToKey(filter());
    const QStringList lines = {
        QStringLiteral("  _formatter : ") + address(reinterpret_cast<quintptr>(formatter())),
        QStringLiteral("     _spFile : ") + address(file) + QStringLiteral(" (") +
            Failure::message(isOpen ? "Opened" : "Closed") + QLatin1Char(')'),
        QStringLiteral(" _spFileName : ") + address(_spFileName.get()),
        QStringLiteral("    _maxSize : ") + amount(_maxSize, "Bytes"),
        QStringLiteral("    _timeout : ") + amount(_timeout, "Days"),
        QStringLiteral("       _kept : ") + QString::number(_kept),
        QStringLiteral("       _last : ") + QString::number(last),
        QStringLiteral("        _tee : ") + Failure::message(isTeeEnabled() ? "True" : "False"),
        QStringLiteral("     _filter : ") + QString::fromLatin1(level),
        QStringLiteral("    _spMutex : ") + address(_spMutex.get()),
        QStringLiteral("_bannerTitle : ") + _bannerTitle,
    };
    return lines.join(QLatin1Char('\n'));
}
