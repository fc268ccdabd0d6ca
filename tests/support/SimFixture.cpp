#include "SimFixture.h"

#include "FirmwareImage.h"
#include "boards/FirmwareFiles.h"

using namespace Qt::StringLiterals;

SimRig::SimRig()
{
    log.Init(dir.filePath(u"VarimoSentry_Updater.txt"_s));
    log.Setlogging(true);
    ini.Init(dir.filePath(u"VarimoSentry_Updater.ini"_s));

    op.setReaction([this](const ScriptedOperator::Prompt &prompt) {
        if (prompt.kind == ScriptedOperator::Prompt::MessageBox) {
            instrument().press(PanelKey::MenuClose);
            return;
        }
        constexpr int kBetweenKeysMs = 300;
        switch (prompt.instruction) {
        case Operator::Instruction::CpuUpdateMode:
            instrument().press(PanelKey::ResetZero);
            clock.sleepMs(kBetweenKeysMs);
            instrument().press(PanelKey::UpdateMode);
            break;
        case Operator::Instruction::General:
            // A board left in its bootloader gets a further pass after every reset, for as long
            // as the operator resets: a fault that keeps it there ends the job here, not in a hang.
            if (++m_failureDialogs > kOperatorRounds)
                throw OperatorCancel(u"The operator gives up"_s);
            if (onFailureDialog)
                onFailureDialog(prompt.lines);
            [[fallthrough]];
        case Operator::Instruction::MainBoardRestart:
            instrument().press(PanelKey::ResetZero);
            clock.sleepMs(kBetweenKeysMs);
            instrument().press(PanelKey::Power);
            // The operator waits for the measured value display, as the dialog says.
            clock.sleepMs(instrument().timing().bootTimeMs + 500);
            break;
        }
    });
}

void SimRig::openPort()
{
    comm.setComPort(u"COM1"_s);
    sim.line().setPortName(u"sim"_s);
    ASSERT_TRUE(comm.OpenPort());
}

bool SimRig::connect(Session &session)
{
    if (!session.run(Job::connectTo(u"COM1"_s)).succeeded())
        return false;
    for (const BoardKind kind : kPanelOrder) {
        const QString pattern = QString::fromLatin1(boardFacts(kind).defaultPattern);
        session.fresh()[kind].InitFromBinFile(
            dir.path(), modHelper::FindNewestFile(dir.path(), pattern), pattern, kind);
    }
    return true;
}

QByteArrayList SimRig::receivedSinceMark()
{
    return instrument().trace().texts(Trace::Entry::Received).mid(qsizetype(m_mark));
}

void SimRig::markTrace()
{
    m_mark = size_t(instrument().trace().texts(Trace::Entry::Received).size());
}

QByteArrayList SimRig::logLines() const
{
    QByteArrayList lines;
    for (QByteArray line : contentOf(log.path()).split('\n')) {
        line.chop(line.endsWith('\r') ? 1 : 0);
        if (line.size() > 11 && line[2] == ':' && line.mid(8, 3) == " : ")
            line = line.mid(11);
        while (line.startsWith('\t'))
            line.remove(0, 1);
        if (!line.isEmpty())
            lines << line;
    }
    return lines;
}

QStringList SimRig::writeFirmware(const QByteArray &cpu, const QByteArray &meas,
                                  const QByteArray &main)
{
    QString error;
    const QStringList names =
        FirmwareImage::writeSet(dir.path(), {cpu, "017"}, {meas, "4"}, {main, "1"}, &error);
    EXPECT_EQ(names.size(), 3) << error.toStdString();
    return names;
}
