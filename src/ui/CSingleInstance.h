#pragma once
// The running desktop program's mailbox: a second start that names a session file hands it to
// the window that already runs instead of starting another one. A local socket beside the
// instance guard carries one line, the file's absolute path, and one answer line.
#include <QObject>
#include <functional>
#include <QString>

class QLocalServer;

namespace kestrin::ui {

class CSingleInstance final : public QObject {
    Q_OBJECT
public:
    // `address`: the socket's path (InstanceAddress() for the program).
    explicit CSingleInstance(const QString& address, QObject* parent = nullptr);
    ~CSingleInstance() override;

    // Starts listening; only the instance holding the guard may, so a socket left behind by a
    // crashed run is replaced. False when the socket cannot be made.
    bool Listen();
    // Whether the window may take a file now (not while a scan, a save or a dialog runs);
    // a refused hand-off makes the second start say that the program already runs.
    void SetBusyCheck(std::function<bool()> busy) { m_busy = std::move(busy); }

    // What became of a hand-off.
    enum class HandOff {
        Taken,    // the running window opens the file
        Busy,     // it runs, but a scan, a save or a dialog holds it: nothing is queued
        NoAnswer, // nobody listens, or no answer came in time
    };
    // The second start's side: sends `file` to the instance listening at `address` and waits
    // up to `timeoutMs` for its answer.
    static HandOff HandOver(const QString& address, const QString& file, int timeoutMs = 3000);

signals:
    // A file another start handed over (absolute path).
    void FileReceived(const QString& path);

private:
    void OnConnection();

    QString m_address;
    QLocalServer* m_server = nullptr;
    std::function<bool()> m_busy;
};

// The program's socket path: in the runtime folder, named after the instance guard.
QString InstanceAddress();

} // namespace kestrin::ui
