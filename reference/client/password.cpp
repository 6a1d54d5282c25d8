// SPDX-License-Identifier: LGPL-2.1-or-later
#include "password.h"

#include <QFile>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

/// The terminal of this process, which gives single keys and shows none of them.
class QuietTerminal
{
public:
    QuietTerminal() : m_terminal(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY))
    {
        m_isThere = m_terminal >= 0 && tcgetattr(m_terminal, &m_before) == 0;
        if (!m_isThere)
            return;
        termios quiet = m_before;
        quiet.c_lflag &= ~tcflag_t(ECHO | ICANON | ISIG); // a signal would leave the terminal quiet
        tcsetattr(m_terminal, TCSAFLUSH, &quiet);
    }
    ~QuietTerminal()
    {
        if (m_isThere)
            tcsetattr(m_terminal, TCSAFLUSH, &m_before);
        if (m_terminal >= 0)
            close(m_terminal);
    }
    QuietTerminal(const QuietTerminal &) = delete;
    QuietTerminal &operator=(const QuietTerminal &) = delete;

    bool isThere() const { return m_isThere; }
    void show(const QString &text) const
    {
        const QByteArray bytes = text.toLocal8Bit();
        [[maybe_unused]] const ssize_t written = write(m_terminal, bytes.constData(), std::size_t(bytes.size()));
    }
    /// The next key; Ctrl+D if there will be none.
    char key() const
    {
        char key = '\4';
        return read(m_terminal, &key, 1) == 1 ? key : '\4';
    }

private:
    const int m_terminal;
    termios m_before{};
    bool m_isThere;
};

} // namespace

std::optional<QString> passwordIn(const QString &path, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1 cannot be read: %2. --password-file needs a file whose first line is the password")
                    .arg(path, file.errorString());
        return {};
    }
    QByteArray line = file.readLine();
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

std::optional<QString> askForPassword(const QString &prompt)
{
    const QuietTerminal terminal;
    if (!terminal.isThere())
        return {};
    terminal.show(prompt);
    QByteArray typed;
    while (true) {
        switch (const char key = terminal.key()) {
        case '\n':
        case '\r':
            terminal.show(QStringLiteral("\n"));
            return QString::fromLocal8Bit(typed);
        case '\3':
        case '\4':
            terminal.show(QStringLiteral("\n"));
            return {};
        case '\b':
        case '\177':
            while (typed.size() > 1 && (typed.back() & 0xc0) == 0x80) // within a letter of UTF-8
                typed.chop(1);
            typed.chop(1);
            break;
        case '\25': // Ctrl+U
            typed.clear();
            break;
        default:
            typed.append(key);
        }
    }
}
