#pragma once

#include <QFile>
#include <QString>
#include <gtest/gtest.h>

// A file's whole content (empty when it cannot be read).
inline QByteArray contentOf(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Writes a file with this content; a file that cannot be written fails the test. Returns the path.
inline QString writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    EXPECT_TRUE(f.open(QIODevice::WriteOnly)) << path.toStdString();
    f.write(content);
    return path;
}
