// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <QFile>
#include <QTest>

#include <dlfcn.h>

/// A process that loads the library when its application object is there already, as a plug-in's
/// host does. Set-up then runs while the library's static objects are being built.
class TestLateLoad : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void setUpRunsWhileTheLibraryIsLoaded();
    void closedLibraryStaysLoaded();
};

void TestLateLoad::setUpRunsWhileTheLibraryIsLoaded()
{
    const QString resource = QStringLiteral(":resources/lang/kez_fr_FR.lang");
    QVERIFY(!QFile::exists(resource));

    void* const library = dlopen(KEZ_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    QVERIFY2(library, dlerror());
    QVERIFY(QFile::exists(resource));

    // The mangled names of Kez::defaultCopyright() and kezInit().
    const auto defaultCopyright =
        reinterpret_cast<QString (*)()>(dlsym(library, "_ZN3Kez16defaultCopyrightEv"));
    const auto kezInit = reinterpret_cast<void (*)()>(dlsym(library, "_Z7kezInitv"));
    QVERIFY(defaultCopyright && kezInit);
    QCOMPARE(defaultCopyright(), QStringLiteral("(c) Vandrel"));
    kezInit();
    QCOMPARE(defaultCopyright(), QStringLiteral("(c) Vandrel"));
}

// Qt keeps the pre-routine and the meta-types that the library gave it. If the library were
// unloaded, the next application object would call a function that is gone.
void TestLateLoad::closedLibraryStaysLoaded()
{
    void* const library = dlopen(KEZ_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    QVERIFY2(library, dlerror());
    for (int handles = 0; handles < 10; ++handles)
        dlclose(library); // more often than it was opened
    QVERIFY(dlopen(KEZ_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD));
}

QTEST_GUILESS_MAIN(TestLateLoad)
#include "tst_lateload.moc"
