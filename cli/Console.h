#pragma once

#include <QByteArray>
#include <QString>
#include <cstdio>
#include <optional>

// The terminal the front end talks to: standard output for what a command reports, standard
// error for failures and for the log lines of -v, standard input for the operator's Enter.
// Knows whether each end is a terminal; on a terminal output, a progress line is redrawn in
// place until the next line is printed.
//
// Used by the one thread of the terminal front end.
class Console
{
public:
    Console(FILE *in = stdin, FILE *out = stdout, FILE *err = stderr);

    bool inputIsTerminal() const { return m_inTerminal; }
    bool outputIsTerminal() const { return m_outTerminal; }

    // Human-readable reports go to standard error instead, so that standard output holds
    // nothing but the JSON document.
    void setReportsToError(bool on) { m_reportsToError = on; }

    // One report, possibly of several lines (CR LF or LF).
    void print(const QString &text);
    // One failure text, possibly of several lines.
    void error(const QString &text);
    // Bytes as they are, to standard output (the JSON document).
    void writeOut(const QByteArray &bytes) { write(m_out, bytes); }
    // Log bytes as the log file receives them, to standard error.
    void echo(const QByteArray &bytes) { write(m_err, bytes); }

    // Terminal output only: shows text as the one progress line, replacing the previous one.
    void progress(const QString &text);
    // Ends the progress line, if one is shown.
    void endProgress();

    // One line typed by the operator, without its line end; nothing at the end of the input.
    std::optional<QString> readLine();

private:
    void write(FILE *to, const QByteArray &bytes);
    void writeLines(FILE *to, const QString &text);

    FILE *m_in;
    FILE *m_out;
    FILE *m_err;
    bool m_inTerminal = false;
    bool m_outTerminal = false;
    bool m_reportsToError = false;
    bool m_progressShown = false;
};
