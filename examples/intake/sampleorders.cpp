// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "sampleorders.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace intake {

QByteArray goodOrder(const QString& prefix, int number)
{
    static const QStringList customers{u"Étienne Durand"_s, u"Maison Lefèvre & Fils"_s,
                                       u"Zoë Martin"_s, u"Garage de l'Ouest"_s, u"Ana Núñez"_s};
    return u"# %1\norder=%1-%2\ncustomer=%3\namount=%4.%5\ncurrency=EUR\n"_s
        .arg(prefix, QString::number(number), customers.at(number % customers.size()),
             QString::number(10 + number * 37 % 990),
             QString::number(number * 17 % 100).rightJustified(2, u'0'))
        .toUtf8();
}

QByteArray badOrder(int number)
{
    const QByteArray tooLong = "order=B-3\ncustomer=" + QByteArray(100'000, 'x') + "\n";
    const QByteArray binary("\x7f"
                            "ELF\x02\x01\x00\xff\xfe=\n\x00",
                            12);
    const QList<QByteArray> documents{
        "order=B-1\namount=12.50\ncurrency=EUR\n",
        "order=B-2\ncustomer=Zoé\namount=-12,5O\ncurrency=EUR\n",
        tooLong,
        binary,
        QByteArray(),
        "order=B-6\norder=B-7\ncustomer=Zoé\namount=1\ncurrency=EUR\n",
    };
    return documents.at(number % documents.size());
}

} // namespace intake
