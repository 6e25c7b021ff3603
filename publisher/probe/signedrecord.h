#pragma once

#include "publisher/common/problem.h"
#include "publisher/common/record.h"

#include <QString>

namespace Publisher {

/// A record whose signature has been looked at.
struct SignedRecord {
    Record record;
    /// Why it is not to be gone by.
    Problem problem;

    /// The signature lies beside the record, under its name with ".minisig"; `key` is
    /// the file of the public key that it has to match. The program minisign looks.
    static SignedRecord read(const QString& path, const QString& key);
};

} // namespace Publisher
