#pragma once

#include <QByteArray>
#include <QString>

// A scripted fault of the instrument or its line. The same rules come from C++ (the factory
// functions) and from text (--fault, parse()):
//
//   silent telegram=KVT [nth=N] [count=K|ever]  those telegrams are lost: no answer, no effect
//   silent [at=MS] [for=MS|ever]                 nothing is sent for a time (default: for ever)
//   answer text=T [telegram=X] [nth=N] [count=K|ever]   answer T instead (the board does nothing)
//   nak packet=N [count=K]                       refuse the N-th block of a transfer K times
//   drop dir=in|out [byte=N] [count=K]           lose K bytes from the N-th byte on
//   corrupt dir=in|out [byte=N] [count=K]        invert K bytes from the N-th byte on
//   unplug [telegram=X] [nth=N]                  pull the adapter after that telegram's answer
//   unplug packet=N                              pull the adapter after the N-th block's ACK
//
// nth counts the matching telegrams (every telegram when no telegram= is given) from 1; count says
// on how many matches from there the rule acts (default 1). Times and byte positions count from
// when the rule is added. Values may be quoted ("...") and use the escapes \r \n \t \\ \" \xHH.
//
// Plain data; usable from any thread.
struct FaultRule
{
    enum class Action { Silent, Answer, Nak, Drop, Corrupt, Unplug };
    enum class Direction { In, Out };
    static constexpr int kForever = -1;

    Action action = Action::Silent;
    bool window = false; // Silent: a time window instead of telegrams
    QByteArray telegram; // the telegrams matched; empty: every telegram
    int nth = 1;
    int count = 1; // or kForever
    QByteArray text; // Answer
    int packet = 0; // Nak, Unplug: 1-based block of a transfer (0: telegram-triggered)
    qint64 atMs = 0; // Silent window: start after adding
    qint64 forMs = kForever; // Silent window: length
    Direction direction = Direction::In; // Drop, Corrupt
    qint64 byte = 1; // Drop, Corrupt: first byte (1-based)

    static FaultRule ignoreTelegram(const QByteArray &telegram, int count = 1, int nth = 1);
    static FaultRule silence(qint64 atMs = 0, qint64 forMs = kForever);
    static FaultRule answerInstead(const QByteArray &telegram, const QByteArray &text,
                                   int count = 1, int nth = 1);
    static FaultRule nakPacket(int packet, int times = 1);
    static FaultRule dropBytes(Direction direction, qint64 byte, int count = 1);
    static FaultRule corruptBytes(Direction direction, qint64 byte, int count = 1);
    static FaultRule unplugAfterTelegram(int nth, const QByteArray &telegram = {});
    static FaultRule unplugAfterPacket(int packet);

    struct ParseResult;
    static ParseResult parse(const QString &text);
    // The rule in the text form parse() reads.
    QByteArray toText() const;
};

struct FaultRule::ParseResult
{
    bool ok = false;
    QString error; // what is wrong with the text, when not ok
    FaultRule rule;
};
