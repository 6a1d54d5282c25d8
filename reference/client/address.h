// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

/// Where a virtual machine is. A password that stands in the address is kept apart, so that what is shown never has it.
struct SpiceAddress
{
    QString uri; ///< without user name and password
    QString host; ///< empty for a UNIX socket, whose virtual machine has no address of its own
    QString password;

    // What only a connection file says; empty: as the session decides.
    QByteArray authorities; ///< PEM, of those whose certificates are trusted
    QString subject; ///< of the server's certificate
    QString ciphers;
    QString proxy;
    QStringList secureChannels; ///< that go over TLS

    /**
     * Reads "spice://HOST:PORT", "spice+tls://HOST:PORT" or "spice+unix:///PATH". The password is what stands before an
     * "@" (behind the user name, if there is one) or in "?password=". A text of any other form is refused whole: where
     * the secret stands in it nobody can tell.
     */
    static std::optional<SpiceAddress> parse(const QString &text);
};
