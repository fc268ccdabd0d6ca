#include "SimTypes.h"

int imagePackets(BoardKind kind)
{
    switch (kind) {
    case BoardKind::Cpu:
        return 8064;
    case BoardKind::Meas:
        return 992;
    case BoardKind::Main:
        return 112;
    }
    return 0;
}

qint64 imageSizeBytes(BoardKind kind)
{
    return qint64(imagePackets(kind)) * 128;
}

QByteArray identityText(BoardKind kind)
{
    switch (kind) {
    case BoardKind::Cpu:
        return QByteArrayLiteral("VARIMO");
    case BoardKind::Meas:
        return QByteArrayLiteral("Vm2MM");
    case BoardKind::Main:
        return QByteArrayLiteral("Vm2PS");
    }
    return {};
}

QByteArray boardLabel(BoardKind kind)
{
    switch (kind) {
    case BoardKind::Cpu:
        return QByteArrayLiteral("CPU Board");
    case BoardKind::Meas:
        return QByteArrayLiteral("Measuring Module");
    case BoardKind::Main:
        return QByteArrayLiteral("Main Board");
    }
    return {};
}

QByteArray boardKey(BoardKind kind)
{
    switch (kind) {
    case BoardKind::Cpu:
        return QByteArrayLiteral("cpu");
    case BoardKind::Meas:
        return QByteArrayLiteral("meas");
    case BoardKind::Main:
        return QByteArrayLiteral("main");
    }
    return {};
}

std::optional<BoardKind> boardFromKey(const QByteArray &key)
{
    for (BoardKind kind : kAllBoards) {
        if (boardKey(kind) == key)
            return kind;
    }
    return std::nullopt;
}

namespace {
struct ModeName
{
    BoardMode mode;
    const char *name;
};
constexpr ModeName kModeNames[] = {
    {BoardMode::Application, "application"},    {BoardMode::UpdateMode, "update-mode"},
    {BoardMode::Waiting, "bootloader-waiting"}, {BoardMode::Idle, "bootloader-idle"},
    {BoardMode::Requesting, "bootloader"},      {BoardMode::Receiving, "receiving"},
    {BoardMode::Restarting, "restarting"},
};

struct KeyName
{
    PanelKey key;
    const char *name;
};
constexpr KeyName kKeyNames[] = {
    {PanelKey::ResetZero, "reset-zero"},   {PanelKey::Power, "power"},
    {PanelKey::UpdateMode, "update-mode"}, {PanelKey::MenuOpen, "menu-open"},
    {PanelKey::MenuClose, "menu-close"},
};
} // namespace

QByteArray modeName(BoardMode mode)
{
    for (const ModeName &m : kModeNames) {
        if (m.mode == mode)
            return QByteArray(m.name);
    }
    return {};
}

std::optional<BoardMode> modeFromName(const QByteArray &name)
{
    for (const ModeName &m : kModeNames) {
        if (name == m.name)
            return m.mode;
    }
    return std::nullopt;
}

QByteArray keyName(PanelKey key)
{
    for (const KeyName &k : kKeyNames) {
        if (k.key == key)
            return QByteArray(k.name);
    }
    return {};
}

std::optional<PanelKey> keyFromName(const QByteArray &name)
{
    for (const KeyName &k : kKeyNames) {
        if (name == k.name)
            return k.key;
    }
    return std::nullopt;
}
