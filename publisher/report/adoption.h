#pragma once

#include "publisher/report/player.h"
#include "publisher/report/report.h"

namespace Publisher {

class LogBook;

/// Works out who has got which publication, and when.
namespace Adoptions {

/// Of each manifest and of the launcher, where anybody has asked for it.
QList<Adoption> in(const LogBook& book);

/// Who was online an hour after the latest publication without getting it.
Trouble onlineAndBehind(const LogBook& book);

} // namespace Adoptions

} // namespace Publisher
