#include "support/TestMain.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QTest>

using namespace tamvex;

class DefaultsTest : public QObject {
    Q_OBJECT
private slots:
    void typesSurviveARestartAndWrongTypesAreTold() {
        test::TestEnv env;
        Defaults& d = *env.defaults;
        const QDateTime date(QDate(2026, 5, 17), QTime(10, 11, 12, 345), Qt::UTC);
        d.setBool("flag", false);
        d.setDouble("money", 1.25);
        d.setInt("count", 42);
        d.setString("text", "no");
        d.setStringArray("list", {"b", "a"});
        d.setDate("when", date);
        d.setData("blob", QByteArray("\x00\x01json", 6));
        d.setString("removed", "v");
        d.remove("removed");
        env.reopenDefaults();
        Defaults& r = *env.defaults;

        QCOMPARE(r.readBool("flag").state, ValueState::Present);
        QCOMPARE(r.readBool("flag").value, false);
        QCOMPARE(r.readDouble("money").value, 1.25);
        QCOMPARE(r.readInt("count").value, 42);
        QCOMPARE(r.readDouble("count").value, 42.0);
        QCOMPARE(r.readString("text").value, QString("no"));
        QCOMPARE(r.readStringArray("list").value, (QStringList{"b", "a"}));
        QCOMPARE(r.readDate("when").value, date);
        QCOMPARE(r.readData("blob").value, QByteArray("\x00\x01json", 6));

        // A text is not a boolean, a fraction not an integer, a number not a text.
        QCOMPARE(r.readBool("text").state, ValueState::WrongType);
        QCOMPARE(r.readInt("money").state, ValueState::WrongType);
        QCOMPARE(r.readString("count").state, ValueState::WrongType);
        QCOMPARE(r.readDate("text").state, ValueState::WrongType);
        QCOMPARE(r.readStringArray("text").state, ValueState::WrongType);
        QCOMPARE(r.readBool("missing").state, ValueState::Absent);
        QCOMPARE(r.readBool("missing").valueOr(true), true);
        QVERIFY(!r.contains("removed")); // a removed key stays gone after a restart
    }

    void fileIsOwnerOnly() {
        test::TestEnv env;
        env.defaults->setString("openrouter_api_key", "sk-secret");
        const QFileInfo info(env.paths.settingsFile());
        QVERIFY(info.exists());
        QCOMPARE(info.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
                 QFile::Permissions());
    }

    void hostileOrCorruptFiles() {
        test::TestEnv env;
        const auto reopenWith = [&](const QByteArray& contents) {
            env.defaults.reset();
            QFile f(env.paths.settingsFile());
            QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
            f.write(contents);
            f.close();
            env.reopenDefaults();
        };
        // Mixed arrays are no text arrays; a tagged object that is not a date stays an object.
        reopenWith(R"({"mixed": ["a", 1], "fake": {"$date": "not a date"}, "nil": null})");
        QCOMPARE(env.defaults->readStringArray("mixed").state, ValueState::WrongType);
        QCOMPARE(env.defaults->readDate("fake").state, ValueState::WrongType);
        QCOMPARE(env.defaults->readString("nil").state, ValueState::WrongType);
        // A file that is no JSON at all is kept aside, and the settings start afresh.
        reopenWith("{ this is not json");
        QFile kept(env.defaults->quarantinedPath());
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("{ this is not json"));
        env.defaults->setBool("after", true);
        env.reopenDefaults();
        QCOMPARE(env.defaults->readBool("after").value, true);
    }
};

TAMVEX_TEST_CLASS(DefaultsTest)
#include "DefaultsTest.moc"
