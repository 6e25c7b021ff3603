#pragma once

#include <QtGlobal>

QT_BEGIN_NAMESPACE
class QComboBox;
QT_END_NAMESPACE

/// Replaces the list's items by the realm names of all entries, so that
/// position p stands for entry p + 1.
void showRealmNames(QComboBox* list);
