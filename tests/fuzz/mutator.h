#pragma once

#include <QByteArray>
#include <QList>

#include <random>

/// Random choices and random damage, the same for the same series and index.
class Mutator {
public:
    Mutator(quint32 series, quint32 index);

    int below(int bound);
    QByteArray oneOf(const QList<QByteArray>& choices);
    /// A few pieces that the settings layer or paths treat in a way of their own.
    QByteArray oddValue();
    /// One change somewhere: something more, less or else.
    void damage(QByteArray& text);
    /// A few changes, or many.
    void damageAtWill(QByteArray& text);

private:
    QByteArray serialised();

    std::mt19937 random;
};
