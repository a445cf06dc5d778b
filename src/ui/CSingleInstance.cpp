#include "ui/CSingleInstance.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

#include "app/Startup.h"
#include "platform/Platform.h"

namespace kestrin::ui {

namespace {

// A path is a few hundred bytes; anything longer is not from a copy of this program.
constexpr qint64 kMaxLineBytes = 64 * 1024;
constexpr int kServerReadMs = 2000;
const QByteArray kTaken = "ok\n";
const QByteArray kBusy = "busy\n";
const QByteArray kRefused = "no\n";

} // namespace

QString InstanceAddress() {
    return QDir(QString::fromStdString(platform::RuntimeFolder()))
        .filePath(QString::fromStdString(app::InstanceLockName(app::kInstanceName)) + ".socket");
}

CSingleInstance::CSingleInstance(const QString& address, QObject* parent) : QObject(parent), m_address(address) {}

CSingleInstance::~CSingleInstance() = default;

bool CSingleInstance::Listen() {
    if (m_server) return m_server->isListening();
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(m_address);
    connect(m_server, &QLocalServer::newConnection, this, &CSingleInstance::OnConnection);
    return m_server->listen(m_address);
}

void CSingleInstance::OnConnection() {
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        // A client that never finishes its line is dropped, not waited for.
        QTimer::singleShot(kServerReadMs, socket, [socket] { socket->abort(); });
        connect(socket, &QLocalSocket::readyRead, socket, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > kMaxLineBytes) socket->abort();
                return;
            }
            QString path = QString::fromUtf8(socket->readLine(kMaxLineBytes)).trimmed();
            bool valid = !path.isEmpty() && QFileInfo(path).isAbsolute();
            bool busy = valid && m_busy && m_busy();
            bool take = valid && !busy;
            socket->write(take ? kTaken : busy ? kBusy : kRefused);
            socket->flush();
            socket->disconnectFromServer();
            // The answer goes first: opening the file may show dialogs for a long time.
            if (take) QTimer::singleShot(0, this, [this, path] { emit FileReceived(path); });
        });
    }
}

CSingleInstance::HandOff CSingleInstance::HandOver(const QString& address, const QString& file, int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(address);
    if (!socket.waitForConnected(timeoutMs)) return HandOff::NoAnswer;
    socket.write(QFileInfo(file).absoluteFilePath().toUtf8() + "\n");
    if (!socket.waitForBytesWritten(timeoutMs)) return HandOff::NoAnswer;
    QByteArray answer;
    while (!answer.contains('\n') && answer.size() < 16) {
        if (!socket.bytesAvailable() && !socket.waitForReadyRead(timeoutMs)) break;
        answer += socket.read(16 - answer.size());
    }
    if (answer == kTaken) return HandOff::Taken;
    return answer == kBusy ? HandOff::Busy : HandOff::NoAnswer;
}

} // namespace kestrin::ui
