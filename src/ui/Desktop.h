#pragma once
// What the desktop program asks of the person in front of it and of the system around it:
// message boxes, yes/no questions, and a viewer for a recovered file. The program uses the real
// boxes and the system's viewer (CDesktop); tests give the main window a recorder instead.
#include <QString>
#include <QWidget>

namespace kestrin::ui {

class IDesktop {
public:
    enum class Sign { Information, Warning, Error };

    virtual ~IDesktop() = default;
    virtual void Tell(QWidget* parent, const QString& caption, const QString& text, Sign sign) = 0;
    // `defaultYes` false: Enter answers No (questions whose Yes loses data or work).
    virtual bool Ask(QWidget* parent, const QString& caption, const QString& text, bool defaultYes) = 0;
    // Opens `path` in the program the system associates with it; false when none started.
    virtual bool OpenInViewer(const QString& path) = 0;
    // Tells `text` with a button `action` beside OK; true when the user chose the action.
    virtual bool TellWithAction(QWidget* parent, const QString& caption, const QString& text, Sign sign,
                                const QString& action) = 0;
    // Shows `folder` in the system's file manager; false when none started.
    virtual bool OpenFolder(const QString& folder) = 0;
    // Asks `question` (captioned "IDS_CONFIRM") with Browse... and Cancel; Browse lets the user
    // choose the file that replaces `missingPath`. Empty when cancelled.
    virtual QString Locate(QWidget* parent, const QString& question, const QString& missingPath) = 0;

    // The same under the program's own caption ("IDS_KESTRIN"); `Fail` with the error icon, for
    // what did not happen. Questions are captioned "IDS_CONFIRM".
    void Inform(QWidget* parent, const QString& text);
    void Warn(QWidget* parent, const QString& text);
    void Fail(QWidget* parent, const QString& text);
    bool Ask(QWidget* parent, const QString& text, bool defaultYes = true);
};

// Message boxes and the system's viewer.
class CDesktop final : public IDesktop {
public:
    void Tell(QWidget* parent, const QString& caption, const QString& text, Sign sign) override;
    bool Ask(QWidget* parent, const QString& caption, const QString& text, bool defaultYes) override;
    bool OpenInViewer(const QString& path) override;
    bool TellWithAction(QWidget* parent, const QString& caption, const QString& text, Sign sign,
                        const QString& action) override;
    bool OpenFolder(const QString& folder) override;
    QString Locate(QWidget* parent, const QString& question, const QString& missingPath) override;
    using IDesktop::Ask;
};

} // namespace kestrin::ui
