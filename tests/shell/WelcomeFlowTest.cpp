#include "shell/welcome/WelcomeFlow.h"
#include "WindowFixture.h"
#include "account/AnalyticsService.h"
#include "shell/welcome/PermissionsCheck.h"
#include "support/TestMain.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

class WelcomeFlowTest : public QObject {
    Q_OBJECT
private slots:
    void advanceWalksTheStepsAndFinishes() {
        AppFixture fx;
        SettingsStore& settings = fx.state->settings();
        WelcomeFlow flow(settings);
        QSignalSpy finished(&flow, &WelcomeFlow::finished);
        QSignalSpy events(&AnalyticsService::shared(), &AnalyticsService::tracked);
        const auto last = [&] { return events.last().at(1).toMap(); };

        QVERIFY(!flow.canGoBack());
        flow.advance();
        QCOMPARE(flow.step(), 1);
        QCOMPARE(last(), (QVariantMap{{"from_step", 0}, {"to_step", 1}, {"step_name", "hotkey"}}));
        flow.advance();
        QCOMPARE(last().value("step_name").toString(), QString("use_cases"));

        // A use case must be chosen; deselecting disables the button again.
        QVERIFY(!flow.canAdvance());
        flow.advance();
        QCOMPARE(flow.step(), 2);
        QSignalSpy canAdvance(&flow, &WelcomeFlow::canAdvanceChanged);
        flow.toggleUseCase("writing");
        QVERIFY(flow.canAdvance() && flow.isUseCaseSelected("writing"));
        flow.toggleUseCase("writing");
        QVERIFY(!flow.canAdvance());
        QVERIFY(canAdvance.size() >= 2); // the button's binding follows
        flow.toggleUseCase("ai");
        flow.toggleUseCase("docs");
        flow.toggleUseCase("nonsense");
        QCOMPARE(settings.useCases().size(), 2);

        flow.back();
        QCOMPARE(flow.step(), 1);
        for (int i = 0; i < 4; ++i)
            flow.advance(); // login and permissions may be skipped
        QCOMPARE(flow.advanceTitle(), QString("Готово"));
        const qsizetype eventsBefore = events.size();
        flow.advance();
        QCOMPARE(events.size(), eventsBefore + 1); // no step event for the last step
        QCOMPARE(events.last().at(0).toString(), QString("onboarding_completed"));
        QCOMPARE(last(), (QVariantMap{{"byok_key_entered", false}, {"use_cases_count", 2}}));
        QCOMPARE(finished.size(), 1);
        QVERIFY(settings.onboardingCompleted() && settings.useEmbeddedKey());
        QCOMPARE(WelcomeFlow::stepName(7), QString("step_7"));

        // A key given at the start is stored trimmed and turns the embedded key off.
        WelcomeFlow withKey(settings, 5, "  sk-or-v1-abc\n");
        withKey.advance();
        QCOMPARE(settings.apiKey(), QString("sk-or-v1-abc"));
        QVERIFY(!settings.useEmbeddedKey());
        QCOMPARE(last().value("byok_key_entered"), QVariant(true));
    }

    void permissionsStepReadsEverySecondWhileShown() {
        ManualClock clock;
        FixedMicrophone mic;
        mic.current = MicrophoneAccess::Status::noDevice;
        FakeAccess input;
        input.trusted = false;
        PermissionsCheck check(clock, mic, input);
        QVERIFY(!check.micGranted().has_value());
        check.appear();
        QCOMPARE(check.micGranted(), std::optional<bool>(false));
        clock.advance(5.0);
        QCOMPARE(input.promptCount(), 0); // no microphone: no prompt chain

        mic.current = MicrophoneAccess::Status::authorized;
        clock.advance(0.99);
        QCOMPARE(check.micGranted(), std::optional<bool>(false));
        clock.advance(0.01);
        QCOMPARE(check.micGranted(), std::optional<bool>(true));
        input.trusted = true;
        clock.advance(1.0);
        QVERIFY(check.accessibilityGranted());

        check.disappear();
        input.trusted = false;
        clock.advance(10.0);
        QVERIFY(check.accessibilityGranted()); // not read after the step went
        QCOMPARE(clock.pendingTimers(), 0);

        // Shown again with the microphone there: input access is asked for 0.5 s later.
        check.appear();
        clock.advance(0.49);
        QCOMPARE(input.promptCount(), 0);
        clock.advance(0.01);
        QCOMPARE(input.promptCount(), 1);
        check.disappear();
    }
};

TAMVEX_TEST_CLASS(WelcomeFlowTest)
#include "WelcomeFlowTest.moc"
