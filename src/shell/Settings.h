#pragma once

#include "boards/Board.h"

#include <QString>

class cINI;

// The settings file's values, each key spelled once: read into this struct, written back through
// the functions below. Reading is cheap, so the values that the file may change while the
// program runs (minimum versions, the last backup name) are read again where they are used.
//
// A value type; callable from any thread on a cINI that thread may use.
struct Settings
{
    QString comPort; // the port preselected at start
    QString backupFileName; // the backup's base name, extended by the serial number
    QString lastBackupFileName; // the backup the last update run made
    bool logParserTele = true; // log every firmware packet
    qint32 xmodemWaitTimeMs = 1; // the pause before each firmware packet
    qint16 retryUpdates = 5;
    bool allowDowngrade = false;
    PerBoard<QString> patterns; // firmware file-name patterns
    PerBoard<QString> minimumVersions; // "FWMin"

    static Settings read(const cINI &ini);

    // The range of the pause before each firmware packet: a longer one makes the board give up
    // waiting in its bootloader.
    static constexpr qint32 kMaxXmodemWaitTimeMs = 1000;
    // Why these settings would harm an update run, naming the key and its allowed range; "" when
    // they would not.
    QString harmfulSetting() const;

    // False when the file could not be written (cINI::errorString says why).
    static bool saveComPort(cINI &ini, const QString &port);
    static void saveLastBackupFileName(cINI &ini, const QString &name);
};
