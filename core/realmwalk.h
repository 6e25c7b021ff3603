#pragma once

#include <QSettings>

/// A walk over the realm entries, from 1 to last(). Every question to the store
/// opens "realms.ini"; as long as a walk lives, the settings layer has the parsed
/// file at hand and parses it again only when it has changed.
class RealmWalk {
public:
    RealmWalk();

    /// Number of the last entry to visit, asked of the store with every call: the
    /// stored count as a rule. A count beyond 10,000 is cut down to the highest
    /// entry that has a key: the rest holds nothing, and walking two thousand
    /// million of them would freeze the window.
    int last() const;

private:
    int highestEntryWithKeys() const;

    QSettings store;
    mutable int cutCount = 0;
    mutable int lastOfCutCount = 0;
};
