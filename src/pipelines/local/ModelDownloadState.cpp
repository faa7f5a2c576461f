#include "pipelines/local/ModelDownloadState.h"

#include <QMetaEnum>

namespace tamvex {

QString ModelDownloadState::toString() const {
    const QString name = QString::fromLatin1(QMetaEnum::fromType<Kind>().valueToKey(int(m_kind)));
    switch (m_kind) {
    case Kind::downloading:
        return name + "(" + QString::number(m_progress) + ")";
    case Kind::failed:
        return name + "(" + m_reason + ")";
    default:
        return name;
    }
}

} // namespace tamvex
