// The simulated instrument's text inputs: fault rules and state files. What parses is written
// back to text that parses to the same again.
//
// An input starting with "{" is a state file, any other a fault rule.

#include "FaultRule.h"
#include "FuzzSupport.h"
#include "InstrumentState.h"

FUZZ_TARGET(input)
{
    if (input.startsWith('{')) {
        const StateFile::LoadResult loaded = StateFile::fromJson(input);
        FUZZ_CHECK(loaded.ok == loaded.error.isEmpty());
        if (!loaded.ok)
            return;
        const QByteArray json = StateFile::toJson(loaded.state);
        const StateFile::LoadResult again = StateFile::fromJson(json);
        FUZZ_CHECK(again.ok);
        FUZZ_CHECK(StateFile::toJson(again.state) == json);
        return;
    }

    const FaultRule::ParseResult parsed = FaultRule::parse(QString::fromLatin1(input));
    FUZZ_CHECK(parsed.ok == parsed.error.isEmpty());
    if (!parsed.ok)
        return;
    const QByteArray text = parsed.rule.toText();
    const FaultRule::ParseResult again = FaultRule::parse(QString::fromLatin1(text));
    FUZZ_CHECK(again.ok);
    FUZZ_CHECK(again.rule.toText() == text);
}
