// SPDX-License-Identifier: LGPL-2.1-or-later
#include "connectionfile.h"

#include "password.h"

#include <QFile>

#include <glib.h>

namespace {

class ConnectionFile
{
public:
    ConnectionFile() : m_file(g_key_file_new()) { }
    ~ConnectionFile() { g_key_file_unref(m_file); }
    ConnectionFile(const ConnectionFile &) = delete;
    ConnectionFile &operator=(const ConnectionFile &) = delete;

    QString load(const QString &path)
    {
        g_autoptr(GError) error = nullptr;
        const bool isRead =
            g_key_file_load_from_file(m_file, QFile::encodeName(path).constData(), G_KEY_FILE_NONE, &error);
        return isRead ? QString() : QString::fromUtf8(error->message);
    }

    QString text(const char *key) const
    {
        g_autofree gchar *value = g_key_file_get_string(m_file, "virt-viewer", key, nullptr);
        return QString::fromUtf8(value);
    }

private:
    GKeyFile *m_file;
};

// In the form of an address, so that there is one reader of those.
QString uriIn(const ConnectionFile &file)
{
    const QString path = file.text("unix-path");
    if (!path.isEmpty())
        return QStringLiteral("spice+unix://") + path;
    QString host = file.text("host");
    if (host.contains(QLatin1Char(':')) && !host.startsWith(QLatin1Char('[')))
        host = QLatin1Char('[') + host + QLatin1Char(']');
    QStringList ports;
    for (const char *const key : {"port", "tls-port"}) {
        const QString port = file.text(key);
        if (port.toInt() > 0)
            ports.append(QLatin1String(key) + QLatin1Char('=') + port);
    }
    return QStringLiteral("spice://") + host + QLatin1Char('?') + ports.join(QLatin1Char('&'));
}

std::optional<SpiceAddress> readFile(const QString &path, bool &isForOnce, QString &error)
{
    ConnectionFile file;
    const QString failure = file.load(path);
    if (!failure.isEmpty()) {
        error = QStringLiteral("%1 cannot be read: %2. Is that its name? If so, fetch it again from where it came")
                    .arg(path, failure);
        return {};
    }
    std::optional<SpiceAddress> address = SpiceAddress::parse(uriIn(file));
    if (!address || file.text("type") != QLatin1String("spice")) {
        error = QStringLiteral("%1 is no connection file of a SPICE virtual machine; one has \"type=spice\", \"host\" "
                               "and \"port\" or \"tls-port\"")
                    .arg(path);
        return {};
    }
    address->password = file.text("password");
    address->authorities = file.text("ca").toUtf8();
    address->subject = file.text("host-subject");
    address->proxy = file.text("proxy");
    address->ciphers = file.text("tls-ciphers");
    address->secureChannels = file.text("secure-channels").split(QLatin1Char(';'), Qt::SkipEmptyParts);
    isForOnce = file.text("delete-this-file") == QLatin1String("1");
    return address;
}

} // namespace

std::optional<SpiceAddress> placeOf(const QString &text, const QString &passwordFile, QString &error)
{
    const bool isFile = text.endsWith(QLatin1String(".vv"));
    bool isForOnce = false;
    std::optional<SpiceAddress> address = isFile ? readFile(text, isForOnce, error) : SpiceAddress::parse(text);
    if (!address && !isFile)
        error = QStringLiteral("this is no address of a virtual machine; one reads spice://HOST:PORT, "
                               "spice+tls://HOST:PORT or spice+unix:///PATH");
    if (address && !passwordFile.isEmpty()) {
        const std::optional<QString> password = passwordIn(passwordFile, error);
        if (!password)
            return {};
        address->password = *password;
    }
    if (isForOnce)
        QFile::remove(text);
    return address;
}
