#pragma once

#include <QString>
#include <stdexcept>

// An error that a lower layer cannot handle and hands to its caller, with the context of where it
// happened. Callers add their own context as it travels upward ("Restore Main Board: ...").
class UpdaterError : public std::runtime_error
{
public:
    explicit UpdaterError(const QString &message)
        : std::runtime_error(message.toStdString())
        , m_message(message)
    {
    }

    QString message() const { return m_message; }

private:
    QString m_message;
};
