#pragma once

#include "shell/main/HistoryListModel.h"
#include "shell/main/LoginForms.h"
#include "shell/main/RetryingIds.h"
#include "shell/settings/SettingsPaneModel.h"

#include <QObject>
#include <QUrl>
#include <QUuid>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>

namespace tamvex {

class AppState;
class InputAccess;
class MicrophoneAccess;
class ModelSelfTest;
class ModelDownloader;
class SettingsStore;

/// What the main window's panes show and do, over AppState and its stores. One per window:
/// it lives as long as the window, as the selected row and the retrying ids do.
class MainWindowModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The main window controller makes the model")
    Q_PROPERTY(QString section READ section WRITE setSection NOTIFY sectionChanged)
    /// The section's place among the panes: home, insights, account, settings.
    Q_PROPERTY(int sectionIndex READ sectionIndex NOTIFY sectionChanged)
    Q_PROPERTY(bool recording READ recording NOTIFY recordingChanged)
    Q_PROPERTY(bool loggedIn READ loggedIn NOTIFY accountChanged)
    Q_PROPERTY(QString phone READ phone NOTIFY accountChanged)
    Q_PROPERTY(QString balanceText READ balanceText NOTIFY accountChanged)
    Q_PROPERTY(tamvex::HistoryListModel* history READ history CONSTANT)
    Q_PROPERTY(tamvex::RetryingIds* retrying READ retrying CONSTANT)
    Q_PROPERTY(QString selectedEntryId READ selectedEntryId WRITE setSelectedEntryId NOTIFY selectedEntryIdChanged)
    Q_PROPERTY(QVariantList homeTiles READ homeTiles NOTIFY insightsChanged)
    Q_PROPERTY(QVariantMap weeklyGoal READ weeklyGoalMap NOTIFY insightsChanged)
    Q_PROPERTY(bool insightsReady READ insightsReady NOTIFY insightsChanged)
    Q_PROPERTY(QString insightsUpdated READ insightsUpdated NOTIFY insightsChanged)
    Q_PROPERTY(QVariantList insightCards READ insightCards NOTIFY insightsChanged)
    Q_PROPERTY(QVariantList activity READ activity NOTIFY insightsChanged)
    Q_PROPERTY(QVariantList categories READ categories NOTIFY insightsChanged)
    Q_PROPERTY(QVariantList topWords READ topWords NOTIFY insightsChanged)
    Q_PROPERTY(QString placeholderTitle READ placeholderTitle CONSTANT)
    Q_PROPERTY(QString placeholderText READ placeholderText CONSTANT)
    Q_PROPERTY(QVariantList weekBars READ weekBars NOTIFY insightsChanged)
    Q_PROPERTY(QString categoriesEmptyText READ categoriesEmptyText CONSTANT)
    Q_PROPERTY(QString topWordsEmptyText READ topWordsEmptyText CONSTANT)
    Q_PROPERTY(QObject* settings READ settingsObject CONSTANT)
    Q_PROPERTY(QVariantList presets READ presets NOTIFY settingsChanged)
    Q_PROPERTY(QString telegramTitle READ telegramTitle CONSTANT)
    Q_PROPERTY(tamvex::SettingsPaneModel* settingsPane READ settingsPane CONSTANT)
    Q_PROPERTY(tamvex::LoginForms* loginForms READ loginForms CONSTANT)
public:
    /// What the model reaches beyond AppState.
    struct Hooks {
        std::function<void()> toggleRecording; ///< the coordinator's toggle
        std::function<void()> showWindow;      ///< brings the main window to the front
        InlineLoginForm::UrlOpener openUrl;    ///< the user's browser
        LoginForms* loginForms = nullptr;      ///< the sign-in forms of the account pane
        QUrl topUpUrl;
        QString telegramContact;                     ///< "@name" or a link
        const MicrophoneAccess* microphone = nullptr; ///< the settings' microphone row
        const InputAccess* input = nullptr;           ///< the settings' input access row
        ModelDownloader* models = nullptr;            ///< the local model card
        ModelSelfTest* selfTest = nullptr;            ///< its speeds; none: not measured
    };

    /// The model over `state`; the hooks' microphone, input and models must be set.
    MainWindowModel(AppState& state, Hooks hooks, QObject* parent = nullptr);

    QString section() const;
    int sectionIndex() const;
    /// Selects a section (the state reports "section_opened" for every change).
    void setSection(const QString& raw);
    bool recording() const;
    bool loggedIn() const;
    QString phone() const;
    /// The balance as formatTokens writes it.
    QString balanceText() const;
    HistoryListModel* history() { return &m_history; }
    RetryingIds* retrying() { return &m_retrying; }
    QString selectedEntryId() const { return m_selectedEntryId; }
    void setSelectedEntryId(const QString& id);
    QVariantList homeTiles() const;
    QVariantMap weeklyGoalMap() const;
    bool insightsReady() const;
    QString insightsUpdated() const;
    QVariantList insightCards() const;
    QVariantList activity() const;
    QVariantList categories() const;
    QVariantList topWords() const;
    QString placeholderTitle() const;
    QString placeholderText() const;
    /// The last 7 days' words, today last, each as a share of the busiest of them: the small
    /// chart behind "Слов в минуту".
    QVariantList weekBars() const;
    QString categoriesEmptyText() const;
    QString topWordsEmptyText() const;
    QObject* settingsObject() const;
    QVariantList presets() const;
    QString telegramTitle() const;
    LoginForms* loginForms() const { return m_hooks.loginForms; }
    /// Made when the settings pane is first built: its rows read the microphone, which can
    /// take a moment, and the window's first frame should not wait for that.
    SettingsPaneModel* settingsPane();

    /// The big microphone button.
    Q_INVOKABLE void toggleRecording();
    /// The status pill: logs, opens the account section and shows the window.
    Q_INVOKABLE void tapStatusPill();
    /// A tap on a history row: selects it, or clears the selection when it was selected.
    Q_INVOKABLE void tapEntry(const QString& id);
    /// "doc.on.doc": the entry's text to the clipboard.
    Q_INVOKABLE void copyEntry(const QString& id);
    /// "trash": removes the entry, with no confirmation.
    Q_INVOKABLE void removeEntry(const QString& id);
    /// "Распознать ещё раз".
    Q_INVOKABLE void retryEntry(const QString& id);
    /// The insights pane appearing, and its header's "arrow.clockwise": a new snapshot when the
    /// last one is over an hour old (or there is none).
    Q_INVOKABLE void refreshInsights();
    /// "Выйти" of the sign-out confirmation.
    Q_INVOKABLE void signOut();
    /// "Удалить навсегда" of the local data confirmation.
    Q_INVOKABLE void clearHistory();
    /// The balance card's top-up button.
    Q_INVOKABLE void openTopUp();
    /// The contact card's button.
    Q_INVOKABLE void openTelegram();
    /// A preset card's tap.
    Q_INVOKABLE void choosePreset(const QString& raw);

signals:
    void sectionChanged();
    void recordingChanged();
    void accountChanged();
    void selectedEntryIdChanged();
    void insightsChanged();
    void settingsChanged();

private:
    AppState& m_state;
    Hooks m_hooks;
    HistoryListModel m_history;
    RetryingIds m_retrying;
    std::unique_ptr<SettingsPaneModel> m_settingsPane;
    QString m_selectedEntryId;
};

} // namespace tamvex
