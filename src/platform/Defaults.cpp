#include "platform/Defaults.h"

#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <sys/stat.h>

namespace tamvex {

namespace {

// Dates and data have no JSON type: they are written as one-key tagged objects.
const QString kDateTag = QStringLiteral("$date");
const QString kDataTag = QStringLiteral("$data");

QJsonValue toJson(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return double(value.toLongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return value.toDouble();
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QDateTime:
        return QJsonObject{{kDateTag, value.toDateTime().toUTC().toString(Qt::ISODateWithMs)}};
    case QMetaType::QByteArray:
        return QJsonObject{{kDataTag, QString::fromLatin1(value.toByteArray().toBase64())}};
    case QMetaType::QStringList:
        return QJsonArray::fromStringList(value.toStringList());
    case QMetaType::QVariantList: {
        QJsonArray array;
        for (const QVariant& item : value.toList())
            array.append(toJson(item));
        return array;
    }
    case QMetaType::QVariantMap: {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            object.insert(it.key(), toJson(it.value()));
        return object;
    }
    default:
        return QJsonValue::Null;
    }
}

QVariant fromJson(const QJsonValue& value) {
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        if (object.size() == 1 && object.contains(kDateTag) && object[kDateTag].isString()) {
            const QDateTime date = QDateTime::fromString(object[kDateTag].toString(), Qt::ISODateWithMs);
            if (date.isValid())
                return date;
        }
        if (object.size() == 1 && object.contains(kDataTag) && object[kDataTag].isString())
            return QByteArray::fromBase64(object[kDataTag].toString().toLatin1());
        QVariantMap map;
        for (auto it = object.begin(); it != object.end(); ++it)
            map.insert(it.key(), fromJson(it.value()));
        return map;
    }
    if (value.isArray()) {
        QVariantList list;
        for (const QJsonValue& item : value.toArray())
            list.append(fromJson(item));
        return list;
    }
    if (value.isNull())
        return QVariant::fromValue(nullptr);
    return value.toVariant();
}

bool readJson(QIODevice& device, QSettings::SettingsMap& map) {
    const QByteArray bytes = device.readAll();
    if (bytes.trimmed().isEmpty())
        return true;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return false;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it)
        map.insert(it.key(), fromJson(it.value()));
    return true;
}

bool writeJson(QIODevice& device, const QSettings::SettingsMap& map) {
    QJsonObject object;
    for (auto it = map.begin(); it != map.end(); ++it)
        object.insert(it.key(), toJson(it.value()));
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Indented);
    return device.write(bytes) == bytes.size();
}

QSettings::Format jsonFormat() {
    static const QSettings::Format format = QSettings::registerFormat("json", readJson, writeJson);
    return format;
}

bool isNumber(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

template <class T> Typed<T> present(T value) {
    return Typed<T>{ValueState::Present, std::move(value)};
}
template <class T> Typed<T> wrongType() {
    return Typed<T>{ValueState::WrongType, T{}};
}

} // namespace

Defaults::Defaults(const QString& path) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (!QFile::exists(path)) {
        // Create it owner-only before the first write, so the key never lies world-readable.
        const mode_t old = ::umask(077);
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.close();
        ::umask(old);
    }
    m_settings = std::make_unique<QSettings>(path, jsonFormat());
    if (m_settings->status() == QSettings::FormatError) {
        // Keep the user's unreadable file instead of letting the next write replace it.
        m_settings.reset();
        m_quarantined = path + ".unreadable-" + QDateTime::currentDateTime().toString("yyyyMMdd-hhmmss");
        QFile::rename(path, m_quarantined);
        logError("Settings file is not valid JSON, moved aside to " + m_quarantined);
        m_settings = std::make_unique<QSettings>(path, jsonFormat());
    }
}

Defaults::~Defaults() = default;

QString Defaults::path() const {
    return m_settings->fileName();
}

bool Defaults::contains(const QString& key) const {
    return m_settings->contains(key);
}

QVariant Defaults::object(const QString& key) const {
    return m_settings->value(key);
}

Typed<bool> Defaults::readBool(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (v.typeId() != QMetaType::Bool)
        return wrongType<bool>();
    return present(v.toBool());
}

Typed<double> Defaults::readDouble(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (!isNumber(v))
        return wrongType<double>();
    return present(v.toDouble());
}

Typed<qint64> Defaults::readInt(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (!isNumber(v))
        return wrongType<qint64>();
    const double d = v.toDouble();
    if (!std::isfinite(d) || std::trunc(d) != d)
        return wrongType<qint64>();
    return present(qint64(d));
}

Typed<QString> Defaults::readString(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (v.typeId() != QMetaType::QString)
        return wrongType<QString>();
    return present(v.toString());
}

Typed<QStringList> Defaults::readStringArray(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (v.typeId() == QMetaType::QStringList)
        return present(v.toStringList());
    if (v.typeId() != QMetaType::QVariantList)
        return wrongType<QStringList>();
    QStringList list;
    for (const QVariant& item : v.toList()) {
        if (item.typeId() != QMetaType::QString)
            return wrongType<QStringList>();
        list.append(item.toString());
    }
    return present(list);
}

Typed<QDateTime> Defaults::readDate(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (v.typeId() != QMetaType::QDateTime)
        return wrongType<QDateTime>();
    return present(v.toDateTime());
}

Typed<QByteArray> Defaults::readData(const QString& key) const {
    const QVariant v = object(key);
    if (!v.isValid())
        return {};
    if (v.typeId() != QMetaType::QByteArray)
        return wrongType<QByteArray>();
    return present(v.toByteArray());
}

void Defaults::setBool(const QString& key, bool value) {
    write(key, value);
}
void Defaults::setDouble(const QString& key, double value) {
    write(key, value);
}
void Defaults::setInt(const QString& key, qint64 value) {
    write(key, value);
}
void Defaults::setString(const QString& key, const QString& value) {
    write(key, value);
}
void Defaults::setStringArray(const QString& key, const QStringList& value) {
    write(key, value);
}
void Defaults::setDate(const QString& key, const QDateTime& value) {
    write(key, value);
}
void Defaults::setData(const QString& key, const QByteArray& value) {
    write(key, value);
}
void Defaults::setObject(const QString& key, const QVariant& value) {
    write(key, value);
}

void Defaults::remove(const QString& key) {
    m_settings->remove(key);
    flush();
}

QStringList Defaults::keys() const {
    QStringList all = m_settings->allKeys();
    all.sort();
    return all;
}

void Defaults::write(const QString& key, const QVariant& value) {
    m_settings->setValue(key, value);
    flush();
}

Defaults::Batch::~Batch() {
    if (--m_defaults.m_batchDepth == 0 && m_defaults.m_dirty)
        m_defaults.flush();
}

void Defaults::flush() {
    if (m_batchDepth > 0) {
        m_dirty = true;
        return;
    }
    m_dirty = false;
    m_settings->sync();
    QFile::setPermissions(m_settings->fileName(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (m_settings->status() == QSettings::AccessError)
        logError("Settings could not be written to " + m_settings->fileName());
}

} // namespace tamvex
