#include "Board.h"

namespace {

const BoardFacts kFacts[kBoardCount] = {
    {BoardKind::Cpu, "cpu", "CPU Board", "DHR;0", "DHR;0", "KVT;BLCPU;1", "F", "VARIMO", 8064,
     "CPUBoard", "FW_CPU-BOARD_VXXX-YYY_CRC", "2.00", "CPUboard",
     "Starting CPU Board bootloader...", "Sending CPU Board binary file ",
     "Update of CPU Board successfully completed.", "Restoring parameters to CPU Board...",
     "ERROR: Backup CPU Board failed", "ERROR: Cannot update to this CPU Board version"},
    {BoardKind::Meas, "meas", "Measuring Module", "DHR;1", "DHR;3", "BLMM;1", "DHR;3", "Vm2MM", 992,
     "Messmodul", "FW_MESSMODUL_XXX-Y_CRC", "1.20", "Measureboard",
     "Starting Measuring Module bootloader...", "Sending Measuring Module binary file ",
     "Update of Measuring Module successfully completed.",
     "Restoring parameters to Measuring Module...", "ERROR: Backup Measuring Module failed",
     "ERROR: Cannot update to this Measuring Module version"},
    {BoardKind::Main, "main", "Main Board", "DHR;2", "DHR;4", "BLSP;1", "DHR;4", "Vm2PS", 112,
     "Mainboard", "FW_MAINBOARD_XXX_CRC", "1.02", "Mainboard", "Starting Main Board bootloader...",
     "Sending Main Board binary file ", "Update of Main Board successfully completed.",
     "Restoring parameters to Main Board...", "ERROR: Backup Main Board failed",
     "ERROR: Cannot update to this Main Board version"},
};

} // namespace

const BoardFacts &boardFacts(BoardKind kind)
{
    return kFacts[std::size_t(kind)];
}

std::optional<BoardKind> boardFromKey(const QString &key)
{
    for (const BoardFacts &facts : kFacts) {
        if (key == QLatin1StringView(facts.key))
            return facts.kind;
    }
    return std::nullopt;
}
