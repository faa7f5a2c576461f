import QtQuick
import Tamvex

// Wraps its children in rows.
Flow {
    spacing: 8
}
