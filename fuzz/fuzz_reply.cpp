// SPDX-License-Identifier: LGPL-2.1-or-later

// A component that answers with any bytes and claims any length. Logging stays on, into nowhere: the answer is
// formatted for the log too.
//
// An input: a line "claimed length, result, capacity" of decimal numbers, then what the component writes. A result of
// 99 stands for an exception.

#include "component/redirecthandler.h"
#include "target.h"
#include "worker/devredirectworker.h"

#include <QCoreApplication>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace {

constexpr int Throws = 99;
constexpr int LargestCapacity = 200000;

struct Answer
{
    int claimed = 0;
    int result = 0;
    int capacity = 0;
    QByteArray bytes;
};

Answer answer;
int calls = 0;
int lists = 0;
DevRedirectWorker *worker = nullptr;

Answer answerIn(const QByteArray &input)
{
    const int lineEnd = input.indexOf('\n');
    const QList<QByteArray> numbers = input.left(lineEnd).split(',');
    Answer read;
    read.claimed = numbers.value(0).toInt();
    read.result = numbers.value(1).toInt();
    read.capacity = qBound(0, numbers.value(2).toInt(), LargestCapacity);
    if (lineEnd >= 0)
        read.bytes = input.mid(lineEnd + 1);
    return read;
}

int expectedResult()
{
    return answer.result == Throws ? 1 : answer.result;
}

void runCommand()
{
    const std::unique_ptr<char[]> buffer(new char[std::size_t(answer.capacity)]());
    int length = answer.capacity;
    const int result = DevRedirectWorker::m_redirectHandler->handlerRedirCtrlCommand("{}", buffer.get(), length);
    expectEqual(result, expectedResult(), "result of a command");
    expectEqual(length, answer.claimed, "length as the component has set it");

    length = answer.capacity;
    DevRedirectWorker::m_redirectHandler->handlerRedirCtrlCommand("{}", nullptr, length);
}

void fetchList()
{
    const std::unique_ptr<char[]> buffer(new char[std::size_t(answer.capacity)]());
    int length = answer.capacity;
    const bool success = worker->getDevList(buffer.get(), length);
    expectEqual(success, expectedResult() == 0, "result of a list");
    expectEqual(length, std::clamp(answer.claimed, 0, answer.capacity), "length of a list");
}

void fetchListForView()
{
    calls = 0;
    lists = 0;
    worker->onGetDevListByVirApp();
    expectEqual(calls, expectedResult() == 0 ? 1 : 2, "a refused list is asked for once more");
    expectEqual(lists, expectedResult() == 0 ? 1 : 0, "a list that came is sent");
}

void writeNowhere(QtMsgType, const QMessageLogContext &, const QString &) { }

} // namespace

extern "C" __attribute__((visibility("default"))) int answerCommand(const std::string &, char *buffer, int &length)
{
    ++calls;
    if (buffer)
        std::copy_n(answer.bytes.constData(), std::min(length, answer.bytes.size()), buffer);
    length = answer.claimed;
    if (answer.result == Throws)
        throw std::runtime_error("no answer");
    return answer.result;
}

int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qInstallMessageHandler(writeNowhere);
    new QCoreApplication(*argc, *argv);
    DevRedirectWorker::m_redirectHandler->loadDynamicLib();
    worker = new DevRedirectWorker(nullptr);
    QObject::connect(worker, &DevRedirectWorker::sendDevListInfoToVirApp, [] { ++lists; });
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    answer = answerIn(bytesOf(data, size));
    runCommand();
    fetchList();
    fetchListForView();
    return 0;
}
