#include "tests/fuzz/brokenrealms.h"

#include "tests/fuzz/mutator.h"

namespace {

QByteArray number(Mutator& chance, int n)
{
    return chance.below(15) > 0 ? QByteArray::number(n) : chance.oddValue();
}

QByteArray entry(Mutator& chance, int n)
{
    QByteArray rows;
    for (const char* field :
         { "realmName", "realmHost", "clientPath", "testRealm", "language", "x" }) {
        if (chance.below(4) > 0)
            rows += number(chance, n) + '-' + field + '=' + chance.oddValue()
                + (chance.below(20) ? "\n" : "\r\n");
    }
    return rows;
}

} // namespace

QByteArray brokenRealms(quint32 series, quint32 index)
{
    Mutator chance(series, index);
    const int entries = chance.below(6);
    QByteArray text = "[realms]\nsize=" + number(chance, entries) + '\n';
    for (int n = 1; n <= entries; ++n)
        text += entry(chance, n);
    text += "[selected_realm]\nrealmid=" + number(chance, 1) + "\ndev=" + chance.oddValue() + '\n';
    chance.damageAtWill(text);
    return text;
}
