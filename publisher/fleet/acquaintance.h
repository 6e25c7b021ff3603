#pragma once

#include "publisher/fleet/member.h"

namespace Publisher {

class Clock;

/// Makes sure that what is copied to a remote comes out of that server's own addresses,
/// and that the server tells the time that this machine tells. Writes a small file to
/// each server, asks for it and removes it: a server that cannot be written to shows here,
/// and so does an address that is another server's.
namespace Acquaintance {

/// False when a member has a problem.
bool make(Members& members, int secondsOfSilence, const Clock& clock);
/// Whether the file of a push that was cut off is still there.
bool hasLeftSomething(const Member& member);

} // namespace Acquaintance

} // namespace Publisher
