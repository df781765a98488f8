// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "fuzz/inputfile.h"

#include <kez/exception.h>
#include <kez/langbundle.h>

#include <memory>

namespace {

/// Checks what is true of every bundle.
void checkBundle(LangBundle& bundle)
{
    int keys = 0;
    for (auto it = bundle.begin(); it != bundle.end(); ++it, ++keys) {
        require(!it.key().isEmpty() && !it.key().contains(QLatin1Char('=')), "a key is whole");
        require(bundle.contains(it.key()) && bundle.text(it.key()) == it.value(),
                "a key is found with its text");
    }
    require(keys == bundle.size(), "all keys are counted");
}

void load(const QString& path)
{
    try {
        checkBundle(*LangBundle::load(path, QStringLiteral("m"), QStringLiteral("l")));
    } catch (Exception* e) {
        const std::unique_ptr<Exception> failure(e);
        require(failure->detail().startsWith(QStringLiteral("shared_ptr<LangBundle> LangBundle::")),
                "a failure says where");
    }
}

} // namespace

/// Loads the input as a bundle, once as it is and once as the body below a valid header.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    const QByteArray input = inputBytes(data, size);
    for (const QByteArray& bytes : {input, "module=m;lang=l\n" + input}) {
        InputDirectory::write(QStringLiteral("m_l.lang"), bytes);
        load(InputDirectory::path(QString()));
    }
    return 0;
}
