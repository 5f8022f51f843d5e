// Any datagram on the control port decodes to a command or to nothing, never to a crash.
#include "controlcommand.h"
#include "fuzzsupport.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    silenceQtMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const ControlCommand cmd = parseControlCommand(fuzzBytes(data, size));
    // An error only ever comes with a recognised word, and an error is what gets printed.
    FUZZ_CHECK(!cmd.error || cmd.kind != ControlCommand::None);
    FUZZ_CHECK(!cmd.error || cmd.debugLine() == QLatin1String(cmd.error));
    printControlDebugLine(cmd);
    if (cmd.isValid() && cmd.kind == ControlCommand::AddLabel) {
        FUZZ_CHECK(!cmd.name.contains(QLatin1Char(',')));
        FUZZ_CHECK(clickReport(cmd.name).startsWith("clicked:"));
    }
    return 0;
}
