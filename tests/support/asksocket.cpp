// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/asksocket.h"

#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

QByteArray askSocket(const QString &path, const QByteArray &request, const char *endsWith)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.toLocal8Bit().constData(), sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    QByteArray answer;
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        timeval patience{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (write(fd, request.constData(), size_t(request.size())) == request.size()) {
            char bytes[4096];
            ssize_t count = 0;
            while (!answer.endsWith(endsWith) && (count = read(fd, bytes, sizeof bytes)) > 0)
                answer.append(bytes, int(count));
        }
    }
    close(fd);
    return answer;
}
