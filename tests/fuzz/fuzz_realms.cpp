// Feeds broken realm lists to the store, which reads, changes and reads them.

#include "core/settingshandler.h"
#include "tests/fuzz/brokenrealms.h"
#include "tests/fuzz/fuzzloop.h"
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
void change(quint32 index)
{
    const int entries = SettingsHandler::getClientCount();
    if (index % 4 == 1)
        SettingsHandler::addClient(u"added"_s, u"host"_s, u"/client"_s, true);
    else if (index % 4 == 2)
        SettingsHandler::setSelectedRealm(static_cast<int>(index % 7));
    // A file may claim any number of entries, and moving them all takes its time.
    else if (index % 4 == 3 && entries < 20)
        SettingsHandler::removeClient(1);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    TestSupport::requireSandbox();
    return runFuzzer({ u"realms"_s, brokenRealms, [](const QByteArray& input, quint32 index) {
                          TestSupport::writeRealmsIni(input);
                          readAll();
                          change(index);
                          readAll();
                      } });
}
