// SPDX-License-Identifier: LGPL-2.1-or-later
#include "translatedtext.h"

#include <QCoreApplication>
#include <QRegularExpression>

namespace {

constexpr const char Context[] = "Texts";

constexpr const char *Texts[] = {
    // what keeps a device from being shared, and what helps
    QT_TRANSLATE_NOOP("Texts", "user %1 may not open %2; this udev rule helps: %3"),
    QT_TRANSLATE_NOOP("Texts", "that rule in /etc/udev/rules.d, or the package devredir-component-usb-rules"),
    QT_TRANSLATE_NOOP("Texts", "the camera policy denies it"),
    QT_TRANSLATE_NOOP("Texts", "another policy, from whoever sets it"),
    QT_TRANSLATE_NOOP("Texts", "read-only: it would be writable in the virtual machine"),
    QT_TRANSLATE_NOOP("Texts", "the write-protect switch on it, or \"readOnly\" in config.json"),
    QT_TRANSLATE_NOOP("Texts", "mounted at %1; unmount it first"),
    QT_TRANSLATE_NOOP("Texts", "in use as %1"),
    QT_TRANSLATE_NOOP("Texts",
                      "lock, stop or unmount that: udisksctl lock, vgchange -an, mdadm --stop, swapoff, umount"),
    QT_TRANSLATE_NOOP("Texts", "no free channel"),
    QT_TRANSLATE_NOOP("Texts", "a virtual machine that is connected, with one more USB port"),
    // what became of a share
    QT_TRANSLATE_NOOP("Texts", "already shared"),
    QT_TRANSLATE_NOOP("Texts", "cannot open %1: %2"),
    QT_TRANSLATE_NOOP("Texts", "its alternate settings are not numbered one after the other"),
    QT_TRANSLATE_NOOP("Texts", "the device cannot be taken from the local system (usbredir result %1)"),
    QT_TRANSLATE_NOOP("Texts", "the component is stopping"),
    QT_TRANSLATE_NOOP("Texts", "it was pulled out"),
    QT_TRANSLATE_NOOP("Texts", "no outcome within %1 seconds"),
    QT_TRANSLATE_NOOP("Texts", "no such device"),
    QT_TRANSLATE_NOOP("Texts", "the component refused"),
    QT_TRANSLATE_NOOP("Texts", "the virtual machine refuses it"),
    // the connection
    QT_TRANSLATE_NOOP("Texts", "Is the virtual machine running, is this its SPICE address, and may you connect to it?"),
    QT_TRANSLATE_NOOP("Texts", "Does the virtual machine let more than one client in?"),
    QT_TRANSLATE_NOOP("Texts", "no answer within %1 seconds"),
    QT_TRANSLATE_NOOP("Texts", "nothing answers there"),
    QT_TRANSLATE_NOOP("Texts", "the password is wrong or missing"),
    QT_TRANSLATE_NOOP("Texts", "the server closed the connection"),
    QT_TRANSLATE_NOOP("Texts", "the server's certificate is not trusted"),
    QT_TRANSLATE_NOOP("Texts", "what answers is no SPICE server, or refuses"),
    QT_TRANSLATE_NOOP("Texts", "--spice-ca-file names who has signed it, --spice-host-subject whose it is"),
    // the rules
    QT_TRANSLATE_NOOP("Texts", "%1 cannot be read: %2. Mend it there"),
    QT_TRANSLATE_NOOP("Texts", "%1 cannot be written: %2. Make it writable for you"),
    QT_TRANSLATE_NOOP("Texts", "%1: [%2] lacks action=allow or action=deny"),
    // the component
    QT_TRANSLATE_NOOP("Texts", "the component is not loaded: %1. What helps: install devredir-component-usb"),
    QT_TRANSLATE_NOOP("Texts", "the component does not start: is %1 there, and can it be read? The log has the reason"),
};

} // namespace

QString translatedText(const QString &text)
{
    static const QRegularExpression placeMark(QStringLiteral("\\\\%\\d"));
    for (const char *const known : Texts) {
        QString pattern = QRegularExpression::escape(QString::fromUtf8(known));
        pattern.replace(placeMark, QStringLiteral("(.*)"));
        const QRegularExpressionMatch match =
            QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text);
        if (!match.hasMatch())
            continue;
        const QString translated = QCoreApplication::translate(Context, known);
        switch (match.lastCapturedIndex()) { // all at once: what is put in may hold a mark itself
        case 1:
            return translated.arg(match.captured(1));
        case 2:
            return translated.arg(match.captured(1), match.captured(2));
        case 3:
            return translated.arg(match.captured(1), match.captured(2), match.captured(3));
        default:
            return translated;
        }
    }
    return text;
}
