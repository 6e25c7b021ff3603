#pragma once

#include <QList>
#include <QString>

class Output;

/// Something that is not published, and why.
struct Refusal {
    /// Stable, lower-case words with hyphens.
    QString id;
    /// As the admin knows it: relative to the source, or as given.
    QString path;
    /// One sentence or two, the way out included.
    QString reason;
};

/// How a command ends that has published nothing because of them.
void showRefusals(const QList<Refusal>& refusals, Output& output);
