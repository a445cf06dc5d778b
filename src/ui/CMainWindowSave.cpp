// The main window's saving of the ticked items (destination checks, collision choice, zip
// archives, the result's summary) and its recovery sessions (save, open, the offer on leaving
// the results).
#include "ui/CMainWindow.h"

#include "job/Modes.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDateTime>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QStatusBar>
#include <QThread>

#include <fstream>

#include "session/EngineTable.h"
#include "output/DiscTarget.h"
#include "output/OutputGuard.h"
#include "output/Report.h"
#include "output/SessionFile.h"
#include "scan/CScanDriver.h"
#include "scan/OperationRules.h"
#include "ui/CQtMessages.h"
#include "ui/CResultsPage.h"
#include "ui/CScanMan.h"
#include "ui/UiText.h"
#include "util/Text.h"
#include "session/Texts.h"

namespace kestrin::ui {

namespace {

void ShowRefusal(IDesktop& desktop, QWidget* parent, const OutputCheck& check) {
    desktop.Warn(parent, QString::fromStdString(TextOf(DescribeOutputProblem(check))));
}

// Whether the file at `path` may be written. What can never be written there (the source under
// any name, the source device, a missing folder) is refused with the reason; a file that exists
// is replaced only when the user says so, and then `replace` is set for the writer.
bool MayWriteFile(IDesktop& desktop, QWidget* parent, const std::string& path, const std::vector<platform::FileIdentity>& sources,
                  bool& replace) {
    replace = false;
    OutputCheck check = CheckOutputFile(path, sources, false);
    if (check.problem == OutputProblem::kExists) {
        // The shared refusal names the command line's option; the window asks instead.
        QString question = QString::fromStdString(path) + "\n\n" +
                           Tx("IDS_UI_REPLACE_FILE", "A file of this name exists. Replace it? What it holds now will be lost.");
        if (!desktop.Ask(parent, question, false)) return false;
        replace = true;
        check = CheckOutputFile(path, sources, true);
    }
    if (check.ok()) return true;
    ShowRefusal(desktop, parent, check);
    return false;
}

} // namespace

QString CMainWindow::SaveSummary(const SaveResult& r, const QString& destination, bool cancelled) {
    auto line = [](const char* id, const char* fallback, uint64_t n) {
        return "\n" + Tx(id, fallback) + ": " + QString::number(n);
    };
    QString s = r.archiveFailed
                    ? Tx("IDS_SAVING_FAILED", "The recovered files could not be saved to") + " " + destination
                    : Tx("IDS_UI_SAVE_DONE", "Saved to") + " " + destination;
    s += line("IDS_CLI_SUMMARY_FOLDERS", "Folders", r.folders);
    s += line("IDS_CLI_SUMMARY_FILES", "Files", r.files) + " (" + QString::fromStdString(FormatSizeKB(r.bytes)) + ")";
    if (r.skipped) s += line("IDS_CLI_SAVE_SKIPPED", "Skipped", r.skipped);
    if (r.refusedFat) s += line("IDS_CLI_SAVE_FAT_REFUSED", "Too large for FAT", r.refusedFat);
    if (r.incomplete) {
        s += line("IDS_CLI_SAVE_INCOMPLETE", "Saved with unreadable parts", r.incomplete);
        if (r.unreadableBytes)
            s += " (" + QString::fromStdString(FormatSizeKB(r.unreadableBytes)) + " " +
                 Tx("IDS_UI_NOT_READ", "could not be read") + ")";
    }
    if (r.writeErrors) {
        s += line("IDS_UI_SAVE_WRITE_ERRORS", "Could not be written", r.writeErrors);
        if (!r.writeErrorText.empty()) s += " (" + QString::fromStdString(r.writeErrorText) + ")";
        if (r.diskFull)
            s += "\n" + Tx("IDS_UI_DESTINATION_FULL",
                           "The destination is full: free some space there or choose another drive, then save the rest again.");
    }
    // The log lists write failures and unreadable parts as well as refused names: named whenever
    // one was written.
    if (r.logged) s += line("IDS_CLI_SAVE_LOGGED", "Not saved, listed in the log", r.logged) + " (" + QString::fromStdString(r.logPath) + ")";
    else if (!r.logPath.empty()) s += "\n" + Tx("IDS_CLI_SAVE_LOG", "Log") + ": " + QString::fromStdString(r.logPath);
    if (cancelled || r.cancelled) s += "\n" + Tx("IDS_UI_CANCELLED", "Cancelled.");
    return s;
}

void CMainWindow::OnSave() {
    if (!m_tree) return;
    SaveCount count = CountForSave(m_tree.get(), m_results.DeletedOnly());
    if (!count.files && !count.folders) {
        m_desktop.Inform(this, Tx("IDS_UI_NOTHING_MARKED", "Tick the files and folders to save first."));
        return;
    }
    QString destination;
    if (m_resultsPage->SaveToDisc()) {
        BurnTicked();
        return;
    }
    if (m_resultsPage->SaveIntoZip()) {
        // An existing archive is asked about once, by SaveTo, for the name the ending gives.
        destination = QFileDialog::getSaveFileName(this, m_resultsPage->SaveZipText(), QString(),
                                                   Tx("IDS_UI_ZIP_FILTER", "Zip archives") + " (*.zip)", nullptr,
                                                   QFileDialog::DontConfirmOverwrite);
        // The saver tells an archive from a folder by this ending.
        if (!destination.isEmpty() && !destination.endsWith(".zip", Qt::CaseInsensitive)) destination += ".zip";
    } else {
        destination = QFileDialog::getExistingDirectory(this, Tx("IDS_UI_SAVE_TO", "Browse for save folder"));
    }
    if (destination.isEmpty()) return;
    SaveTo(destination, m_resultsPage->CollisionMode());
}

bool CMainWindow::SaveTo(const QString& folder, uint8_t collisionMode) {
    if (!m_tree || !m_haveSource) return false;
    CQtMessages messages(this, m_desktop);
    SaveRequest req;
    req.destination = folder.toStdString();
    req.collisionMode = collisionMode;
    req.deletedOnly = m_results.DeletedOnly();
    req.start = m_tree.get();
    req.messages = &messages;
    // Nothing is written onto the source, and an existing archive only with consent.
    std::vector<platform::FileIdentity> sources = SourceIdentities(*m_src.media);
    if (IsZipDestination(req.destination)) {
        if (!MayWriteFile(m_desktop, this, req.destination, sources, req.replaceExisting)) return false;
    } else if (OutputCheck check = CheckOutputFolder(req.destination, sources); !check.ok()) {
        ShowRefusal(m_desktop, this, check);
        return false;
    }
    if (collisionMode == kCollisionAsk) {
        // Asked by the window thread while the worker waits for the answer.
        req.askRename = [this](std::u16string& name, uint32_t code, uint8_t& mode) {
            bool keep = false;
            auto ask = [&] {
                bool ok = false;
                QString answer = QInputDialog::getText(
                    this, Caption(),
                    Tx("IDS_CLI_RENAME_QUESTION", "Cannot create") + QString(" \"%1\" (%2)").arg(QString::fromStdU16String(name)).arg(code),
                    QLineEdit::Normal, QString::fromStdU16String(name), &ok);
                if (!ok || answer.isEmpty()) {
                    mode = kCollisionSkipOnce;
                    return;
                }
                name = answer.toStdU16String();
                keep = true;
            };
            if (QThread::currentThread() == qApp->thread()) ask();
            else QMetaObject::invokeMethod(qApp, ask, Qt::BlockingQueuedConnection);
            return keep;
        };
    }
    {
        // An image file is never written by a save, so its own file system may take the result;
        // for disks and volumes the same-drive refusal stands.
        struct Captured final : IUserMessages {
            std::vector<UserMessage> shown;
            void Show(const UserMessage& m) override { shown.push_back(m); }
        } captured;
        if (!CheckDestination(*m_src.media, m_tree.get(), req, captured)) {
            bool imageOnSameDrive = m_src.media->GetDeviceKind() == kNotByName && captured.shown.size() == 1 &&
                                    captured.shown[0].id == "IDS_TRYING_TO_SAVE_DATA_ON_SAME";
            if (!imageOnSameDrive) {
                for (const auto& m : captured.shown) messages.Show(m);
                return false;
            }
        }
    }
    SaveResult result;
    Engines engines = MakeEngines();
    engines.saveToFolder = [&](CPhysicalDisk& m, ScanContext& ctx) {
        result = SaveMarked(m, ctx, req);
        return OutcomeOf(result);
    };
    CScanMan dlg(m_desktop, this);
    dlg.SetStatusBarSink([this](const QString& text) { statusBar()->showMessage(text); });
    CScanDriver driver(*m_src.media, engines, dlg);
    driver.SetSaveDestination(req.destination, 0);
    if (!driver.Start(OperationKind::Save, m_mode)) return false;
    BeginOperation(OperationKind::Save);
    dlg.Run(driver);
    EndOperation();
    statusBar()->clearMessage();
    m_lastSave = result;
    bool cancelled = driver.CancelConfirmed() || result.cancelled;
    QString summary = SaveSummary(result, folder, cancelled);
    // Anything not saved as found makes the summary a warning. The folder that holds what was
    // saved (the archive's folder for a zip file) can be opened from it.
    bool warn = result.archiveFailed || result.writeErrors || result.incomplete || result.skipped || result.refusedFat ||
                result.logged;
    QString shown = IsZipDestination(req.destination) ? QFileInfo(folder).absolutePath() : folder;
    if (m_desktop.TellWithAction(this, Caption(), summary, warn ? IDesktop::Sign::Warning : IDesktop::Sign::Information,
                                 Tx("IDS_UI_OPEN_FOLDER", "Open folder")) &&
        !m_desktop.OpenFolder(shown))
        m_desktop.Warn(this, Tx("IDS_UI_FOLDER_NOT_OPENED", "The folder could not be opened:") + "\n" + shown);
    return !driver.CancelConfirmed();
}

// The ticked items onto a disc: the recorder is chosen when there are several; a disc that holds
// data is erased only after the user agreed.
void CMainWindow::BurnTicked() {
    std::vector<RecorderInfo> recorders = ListRecorders();
    if (recorders.empty()) {
        m_desktop.Inform(this, Tx("IDS_NO_RECORDER", "No disc recorder was found."));
        return;
    }
    QStringList names;
    for (const auto& r : recorders) names << QString::fromStdString(r.Name());
    int chosen = 0;
    if (recorders.size() > 1) {
        bool ok = false;
        QString name = QInputDialog::getItem(this, Caption(), Tx("IDS_BURN_TO_DISC", "Burn to disc"), names, 0, false, &ok);
        if (!ok) return;
        chosen = int(names.indexOf(name));
    }
    const RecorderInfo& recorder = recorders[size_t(std::max(chosen, 0))];
    CQtMessages messages(this, m_desktop);
    struct Captured final : IUserMessages {
        std::vector<UserMessage> shown;
        void Show(const UserMessage& m) override { shown.push_back(m); }
    } captured;
    SaveRequest req;
    // The rename question needs the window while the recorder waits: a disc renames by itself.
    const uint8_t mode = m_resultsPage->CollisionMode();
    req.collisionMode = mode == kCollisionAsk ? uint8_t(kCollisionRename) : mode;
    req.deletedOnly = m_results.DeletedOnly();
    req.messages = &captured;
    DiscControl control;
    DiscRequest disc;
    disc.recorder = recorder.address;
    disc.control = &control;
    for (;;) {
        SaveResult result;
        Engines engines = MakeEngines();
        engines.burnToDisc = [&](CPhysicalDisk& m, ScanContext& ctx) {
            result = SaveToDisc({{&m, m_tree.get(), ""}}, ctx, req, disc);
            return OutcomeOf(result);
        };
        CScanMan dlg(m_desktop, this);
        dlg.SetStatusBarSink([this](const QString& text) { statusBar()->showMessage(text); });
        CScanDriver driver(*m_src.media, engines, dlg);
        driver.SetSaveDestination(recorder.address, 1, recorder.Name());
        driver.SetDiscControl(&control);
        captured.shown.clear();
        if (!driver.Start(OperationKind::Save, m_mode)) return;
        BeginOperation(OperationKind::Save);
        dlg.Run(driver);
        EndOperation();
        statusBar()->clearMessage();
        bool holdsData = false;
        for (const auto& m : captured.shown) {
            if (m.id == "IDS_DISC_HOLDS_DATA" && !disc.erase) holdsData = true;
            else messages.Show(m);
        }
        if (holdsData && m_desktop.Ask(this, Tx("IDS_ERASE_DISC_FIRST", "Erase a rewritable disc that holds data") + "?", false)) {
            disc.erase = true;
            continue;
        }
        bool cancelled = driver.CancelConfirmed() || result.cancelled;
        if (cancelled || result.archiveFailed) return; // told already; nothing counts as saved
        m_lastSave = result;
        m_desktop.Inform(this, SaveSummary(result, QString::fromStdString(recorder.Name()), false));
        return;
    }
}

QString CMainWindow::DefaultSessionName(const QDateTime& now) const {
    QString source = m_haveSource ? QFileInfo(QString::fromStdString(m_src.path)).fileName() : QString();
    QDate d = now.date();
    QTime t = now.time();
    // " # %s, %02d-%s-%u[%u %u %u]": source, day, month name, year, hour, minute, second.
    static const char* kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                    "July",    "August",   "September", "October", "November", "December"};
    QString name = QString::asprintf(" # %s, %02d-%s-%u[%u %u %u]", qPrintable(source), d.day(), kMonths[d.month() - 1],
                                     unsigned(d.year()), unsigned(t.hour()), unsigned(t.minute()), unsigned(t.second()));
    // The source name may hold characters a file name cannot.
    name.replace('/', '_');
    return name + ".tks4";
}

bool CMainWindow::SaveSession(const QString& path) {
    if (!m_tree || !m_haveSource) return false;
    CQtMessages messages(this, m_desktop);
    bool replace = false;
    if (!MayWriteFile(m_desktop, this, path.toStdString(), SourceIdentities(*m_src.media), replace)) return false;
    if (!WriteScanSession(path.toStdString(), m_mode, *m_src.media, m_tree.get(), messages, replace)) return false;
    m_sessionSaved = true;
    return true;
}

bool CMainWindow::OpenSession(const QString& path, bool fromOutside) {
    CQtMessages messages(this, m_desktop);
    ReadSessionOptions options;
    options.requestedFromOutside = fromOutside;
    options.currentMode = m_mode;
    // An image file that moved since the session was saved can be found again.
    options.locateImage = [this](const std::string& missing) {
        QString m = QString::fromStdString(missing);
        QString question = Tx("IDS_UI_IMAGE_MOVED", "The image file this session was made from is not where it was:") +
                           "\n" + m + "\n\n" + Tx("IDS_UI_LOCATE_IMAGE", "Browse for it?");
        return m_desktop.Locate(this, question, m).toStdString();
    };
    SessionData session;
    if (!ReadSession(path.toStdString(), options, session, messages)) return false;
    m_results.SetTop(nullptr);
    m_tree = std::move(session.top);
    m_src = OpenedSource();
    m_src.path = ToUtf8(session.sourcePath);
    m_src.media = std::move(session.media);
    m_haveSource = m_src.media != nullptr;
    m_titleSubject = QFileInfo(path).fileName();
    m_resultsPage->SetSource(m_src.media.get());
    if (FindMode(session.mode)) m_mode = session.mode;
    Retranslate();
    ShowResults();
    m_sessionSaved = true; // it is already on disk
    return true;
}

void CMainWindow::OnSaveSession() {
    if (!m_tree) return;
    QString path = QFileDialog::getSaveFileName(this, m_saveSessionAction->text(), DefaultSessionName(QDateTime::currentDateTime()),
                                                "Recovery Session File (*.tks4);;All Files (*.*)", nullptr,
                                                QFileDialog::DontConfirmOverwrite);
    if (!path.isEmpty()) SaveSession(path);
}

void CMainWindow::OnOpenSession() {
    if (CurrentPage() == kResultsPage && !OfferSession()) return;
    QString path = QFileDialog::getOpenFileName(this, m_openSessionAction->text(), QString(),
                                                "Recovery Session File (*.tks4)");
    if (!path.isEmpty()) OpenSessionFromMenu(path);
}

bool CMainWindow::OpenSessionFromMenu(const QString& path) {
    // From the mode pages no recovery mode is in use yet: the session brings its own.
    return OpenSession(path, CurrentPage() == kModePage);
}

bool CMainWindow::OfferSession() {
    if (CurrentPage() != kResultsPage || !m_tree || m_sessionSaved || !m_haveSource) return true;
    // A scan that found no file leaves nothing worth keeping.
    bool anyFile = false;
    ForEachNode(m_tree.get(), [&](CNode* n) {
        if (!n->IsFolder()) anyFile = true;
    });
    if (!anyFile) return true;
    QMessageBox box(QMessageBox::Question, Tx("IDS_CONFIRM", "Confirm"),
                    Tx("IDS_ADVISABLE_SESSION") + "\n\n" + Tx("IDS_SAVE_RECOVERY_SESSION"),
                    QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, this);
    box.setInformativeText(Tx("IDS_IMPORTANT_TIP") + ": " + Tx("IDS_SAVE_SCANNING_TIME"));
    int answer = box.exec();
    if (answer == QMessageBox::Cancel) return false;
    if (answer == QMessageBox::Yes) {
        OnSaveSession();
        return m_sessionSaved;
    }
    return true;
}

void CMainWindow::closeEvent(QCloseEvent* e) {
    // A running scan is stopped from its progress window, not by closing under it.
    if (m_busy) e->ignore();
    else if (OfferSession()) e->accept();
    else e->ignore();
}

void CMainWindow::OnExportList() {
    if (!m_tree || !m_src.media) return;
    const QString dfxml = Tx("IDS_UI_EXPORT_DFXML", "DFXML (*.xml)");
    const QString body = Tx("IDS_UI_EXPORT_BODYFILE", "Timeline body file (*.body)");
    const QString csv = Tx("IDS_UI_EXPORT_CSV", "CSV (*.csv)");
    QString chosen = csv;
    const QString path = QFileDialog::getSaveFileName(this, Tx("IDS_UI_EXPORT_TITLE", "Export List"), QString(),
                                                      csv + ";;" + dfxml + ";;" + body, &chosen);
    if (path.isEmpty()) return;
    ReportOptions options;
    options.format = chosen == dfxml ? ReportFormat::Dfxml : chosen == body ? ReportFormat::Bodyfile : ReportFormat::Csv;
    options.sourcePath = m_src.path;
    options.version = KESTRIN_VERSION;
    // The list goes elsewhere than the source, like saved files (the dialog asked before replacing).
    std::vector<platform::FileIdentity> ids = SourceIdentities(*m_src.media);
    AddSourcePath(ids, m_src.path);
    const OutputCheck check = CheckOutputFile(path.toStdString(), ids, true);
    if (!check.ok()) {
        QMessageBox::warning(this, Tx("IDS_KESTRIN", "Kestrin"), QString::fromStdString(TextOf(DescribeOutputProblem(check))));
        return;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    std::ofstream out(path.toStdString(), std::ios::binary | std::ios::trunc);
    ReportTotals totals;
    bool written = out && WriteReport(out, options, {{0, m_src.media.get(), m_tree.get()}}, totals);
    out.close();
    written = written && !out.fail();
    QApplication::restoreOverrideCursor();
    if (!written)
        QMessageBox::warning(this, Tx("IDS_KESTRIN", "Kestrin"),
                             Tx("IDS_UI_EXPORT_FAILED", "The list could not be written to this file."));
    else
        statusBar()->showMessage(Tx("IDS_UI_EXPORT_DONE", "List written."), 5000);
}

} // namespace kestrin::ui
