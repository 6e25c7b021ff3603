// Realm lists against the store, which reads, changes and reads them.

#include "core/settingshandler.h"
#include "tests/fuzz/target.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QCoreApplication>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// All that the launcher asks the store for. The last entries that a file can
/// claim are like the ones before.
void readAll()
{
    const int entries = std::min(SettingsHandler::getClientCount(), 4);
    for (int n = -1; n <= entries + 1; ++n) {
        SettingsHandler::getRealmName(n);
        SettingsHandler::getRealmHost(n);
        SettingsHandler::getClientPath(n);
        SettingsHandler::getTestRealm(n);
        SettingsHandler::getLanguage(n);
    }
    SettingsHandler::getSelectedRealm();
    SettingsHandler::getDev();
}

/// What the player's buttons do to it.
void change()
{
    SettingsHandler::addClient(u"added"_s, u"host"_s, u"/client"_s, true);
    const int entries = SettingsHandler::getClientCount();
    SettingsHandler::setSelectedRealm(entries);
    if (SettingsHandler::getSelectedRealm() != entries)
        qFatal("the selection is not kept");
    // A file may claim any number of entries, and moving them all takes its time.
    if (entries < 20)
        SettingsHandler::removeClient(1);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static const QCoreApplication application(*argc, *argv);
    TestSupport::requireSandbox();
    Fuzz::silenceToolkit();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    TestSupport::writeRealmsIni(Fuzz::toBytes(data, size));
    readAll();
    change();
    readAll();
    return 0;
}
