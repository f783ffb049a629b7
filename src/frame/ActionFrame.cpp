#include "frame/ActionFrame.h"

#include "frame/Logger.h"

namespace zk {
namespace {
const char* const kRule = "-----------------------------";
}

void frameBegin(const ActionInfo& action) {
    const std::string entry = std::string(action.name) + " << IN " + Logger::timestamp();
    Logger& logger = Logger::create(action.name);
    logPlain(" ");
    logPlain(" ");
    logPlain(kRule);
    logPlain(entry);
    logger.writeVersionLine();
}

UINT frameCaught(const ActionInfo& action, const BVS::Exception& e) {
    if (action.logExceptionAsError) LogLine(Level::Err, action.name) << "e.code(): result=" << e.code();
    LogLine() << action.name << " EXCEPTION: 0x" << hex(e.code());
    return e.code();
}

UINT frameCaughtCode(const ActionInfo& action, UINT code) {
    LogLine() << action.name << " EXCEPTION: 0x" << hex(code);
    return code;
}

UINT frameUnknown(const ActionInfo& action) {
    LogLine() << action.name << " EXCEPTION (...)";
    return kInstallFailure;
}

UINT frameEnd(const ActionInfo& action, UINT result) {
    if (result != 0) LogLine() << "canfail: " << action.canfail;
    LogLine() << action.name << " >> OUT, rv = 0x" << hex(result);
    logPlain(Logger::timestamp());
    logPlain(kRule);
    if (result == kUserExit) {
        LogLine() << action.name << " EXCEPTION - return UserExit";
        return kUserExit;
    }
    return action.canfail ? result : 0;
}

}  // namespace zk
