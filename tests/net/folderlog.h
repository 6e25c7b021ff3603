#pragma once

#include <QString>
#include <QStringList>

#include <memory>

namespace TestSupport {

/// Records what happens to the entries of one folder, in the kernel's order:
/// "created NAME", "written NAME" (closed after writing), "removed NAME",
/// "moved from NAME", "moved to NAME".
class FolderLog {
public:
    explicit FolderLog(const QString& folder);
    ~FolderLog();
    FolderLog(const FolderLog&) = delete;
    FolderLog& operator=(const FolderLog&) = delete;

    /// What happened since the last call.
    QStringList take();

private:
    struct Watch;
    std::unique_ptr<Watch> watch;
};

} // namespace TestSupport
