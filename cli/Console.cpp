#include "Console.h"

#include <unistd.h>

using namespace Qt::StringLiterals;

Console::Console(FILE *in, FILE *out, FILE *err)
    : m_in(in)
    , m_out(out)
    , m_err(err)
    , m_inTerminal(isatty(fileno(in)) == 1)
    , m_outTerminal(isatty(fileno(out)) == 1)
{
}

void Console::write(FILE *to, const QByteArray &bytes)
{
    endProgress();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), to);
    std::fflush(to);
}

void Console::writeLines(FILE *to, const QString &text)
{
    QString lines = text;
    lines.replace(u"\r\n"_s, u"\n"_s);
    write(to, lines.toLocal8Bit() + '\n');
}

void Console::print(const QString &text)
{
    writeLines(m_reportsToError ? m_err : m_out, text);
}

void Console::error(const QString &text)
{
    // Standard output holds nothing unwritten: every write is flushed at once.
    writeLines(m_err, text);
}

void Console::progress(const QString &text)
{
    if (!m_outTerminal)
        return;
    // Back to the start of the line, the text, and the rest of the old line cleared.
    const QByteArray bytes = "\r" + text.toLocal8Bit() + "\x1b[K";
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), m_out);
    std::fflush(m_out);
    m_progressShown = true;
}

void Console::endProgress()
{
    if (!m_progressShown)
        return;
    m_progressShown = false;
    std::fputc('\n', m_out);
    std::fflush(m_out);
}

std::optional<QString> Console::readLine()
{
    QByteArray line;
    int c = 0;
    while ((c = std::fgetc(m_in)) != EOF && c != '\n')
        line += char(c);
    if (c == EOF && line.isEmpty())
        return std::nullopt;
    if (line.endsWith('\r'))
        line.chop(1);
    return QString::fromLocal8Bit(line);
}
