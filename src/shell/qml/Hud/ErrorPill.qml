import Tamvex

// A failure, cut to its first 50 characters.
StatusBadge {
    property string message
    icon: "exclamationmark.triangle.fill"
    text: HudMath.errorText(message)
}
