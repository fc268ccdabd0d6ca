#pragma once

#include <QString>

// The settings file: a plain INI file read and written with the semantics of the Windows
// profile-string functions. Section and key names compare case-insensitively; a value is returned
// without surrounding blanks or quotes and cut to 49 characters; a missing file, section or key
// gives the caller's default (cut the same way); a write creates the file and the section as
// needed and keeps every other line, comment and key of the file exactly as it was.
//
// Every read goes to the file afresh (no cache), so a value edited by hand is seen at once.
// Reads and writes may come from any thread; each call is one whole file access, and writes
// replace the file atomically (a crash leaves the old or the new file, never a torn one).
class cINI
{
public:
    // The longest value a read returns: the profile functions copy into a buffer of 50 characters.
    static constexpr int kMaxValueLength = 49;

    void Init(const QString &path) { m_path = path; }
    QString path() const { return m_path; }

    QString GetValue(const QString &sectionName, const QString &entryName,
                     const QString &defaultValue) const;
    // False only when the value read is exactly "0" ("1" is the default text for true).
    bool GetBoolValue(const QString &sectionName, const QString &entryName,
                      bool defaultValue) const;
    // A numeric key: text that is not a whole number falls back to defaultValue.
    qint32 GetIntValue(const QString &sectionName, const QString &entryName,
                       qint32 defaultValue) const;

    // Writes key=value; failures are reported through the result (and errorString) and otherwise
    // ignored by the callers, as a setting that could not be stored is not worth stopping for.
    bool SetValue(const QString &sectionName, const QString &entryName, const QString &newValue);

    QString errorString() const { return m_error; }

private:
    QString m_path;
    QString m_error;
};
