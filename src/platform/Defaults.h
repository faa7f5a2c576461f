#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

namespace tamvex {

/// What a typed read found under a key.
enum class ValueState { Absent, WrongType, Present };

/// The result of a typed read: the state and, when present, the value.
template <class T> struct Typed {
    ValueState state = ValueState::Absent;
    T value{};
    bool present() const { return state == ValueState::Present; }
    std::optional<T> optional() const { return present() ? std::optional<T>(value) : std::nullopt; }
    T valueOr(T fallback) const { return present() ? value : fallback; }
};

/// Typed key-value settings over QSettings. The file is JSON so that booleans, numbers,
/// texts, arrays, dates and data keep their types across restarts, and a value of the
/// wrong type can be told from an absent key. Every write is flushed at once, and the
/// file is readable by its owner only, since it holds the user's API key.
class Defaults {
public:
    /// Opens (or will create) the settings file at `path`.
    explicit Defaults(const QString& path);
    ~Defaults();
    Defaults(const Defaults&) = delete;
    Defaults& operator=(const Defaults&) = delete;

    /// The settings file.
    QString path() const;
    /// Where an unreadable settings file was moved aside at open, or empty.
    QString quarantinedPath() const { return m_quarantined; }

    bool contains(const QString& key) const;
    /// The stored value as it is, or an invalid QVariant.
    QVariant object(const QString& key) const;

    Typed<bool> readBool(const QString& key) const;
    /// A number; integers read as doubles too.
    Typed<double> readDouble(const QString& key) const;
    /// A number with no fraction.
    Typed<qint64> readInt(const QString& key) const;
    Typed<QString> readString(const QString& key) const;
    /// An array whose every element is a text.
    Typed<QStringList> readStringArray(const QString& key) const;
    Typed<QDateTime> readDate(const QString& key) const;
    Typed<QByteArray> readData(const QString& key) const;

    void setBool(const QString& key, bool value);
    void setDouble(const QString& key, double value);
    void setInt(const QString& key, qint64 value);
    void setString(const QString& key, const QString& value);
    void setStringArray(const QString& key, const QStringList& value);
    void setDate(const QString& key, const QDateTime& value);
    void setData(const QString& key, const QByteArray& value);
    /// Stores a value of any of the supported types as it is.
    void setObject(const QString& key, const QVariant& value);
    void remove(const QString& key);
    /// All keys, sorted.
    QStringList keys() const;

    /// Holds the writes made while it lives and writes the file once when it goes, so that
    /// one change of several keys costs one write of the file.
    class Batch {
    public:
        explicit Batch(Defaults& defaults) : m_defaults(defaults) { ++m_defaults.m_batchDepth; }
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        Defaults& m_defaults;
    };

private:
    void write(const QString& key, const QVariant& value);
    void flush();

    std::unique_ptr<QSettings> m_settings;
    QString m_quarantined;
    int m_batchDepth = 0;
    bool m_dirty = false;
};

} // namespace tamvex
