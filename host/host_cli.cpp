// Diagnostics of the host: inner-data command registry, bounded text output and the command
// framework's answer records.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "host_state.h"

namespace host {

void ResetCli()
{
    W().cli = CliState{};
}

CliResult RunCli(const std::string &name, const std::string &item, const std::optional<std::string> &pidText,
                 uint32_t cont)
{
    CliResult result;
    auto it = W().cli.commands.find(name);
    if (it == W().cli.commands.end() || it->second.pfn == nullptr) {
        return result;
    }
    const InnerReg reg = it->second;
    result.registered = true;

    ZAN_INNERDATA_REQ_S req{};
    req.pcItem = item.c_str();
    req.pcPid = pidText ? pidText->c_str() : nullptr;
    req.bPidGiven = pidText ? 1u : 0u;
    req.ulContinue = cont;
    ZAN_CLI_CMD_S cmd{};
    cmd.ulCmdId = W().cli.nextCmdId++;
    cmd.pFwRsv = nullptr;

    CliResult *outer = W().cli.current;
    W().cli.current = &result;
    result.result = reg.pfn(&req, &cmd, reg.pArg);
    W().cli.current = outer;

    for (const std::vector<uint8_t> &rec : result.records) {
        if (rec.size() <= ZAN_INNERDATA_TEXT_OFF) {
            continue;
        }
        const char *text = reinterpret_cast<const char *>(rec.data() + ZAN_INNERDATA_TEXT_OFF);
        result.text.append(text, strnlen(text, rec.size() - ZAN_INNERDATA_TEXT_OFF));
    }
    return result;
}

}  // namespace host

using host::W;

extern "C" {

uint32_t ZAN_InnerData_RegCallBack(ZAN_COMP_CTX_S *pCompCtx, const char *pcName, ZAN_INNERDATA_PF pfn, void *pArg)
{
    if (pCompCtx == nullptr || pcName == nullptr || pfn == nullptr) {
        host::Fault("ZAN_InnerData_RegCallBack without context, name or callback");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::RegInner)) {
        return 1;
    }
    W().cli.commands[pcName] = host::InnerReg{pfn, pArg};
    return 0;
}

uint32_t ZAN_InnerData_Output(char *pcText, uint32_t ulCurLen, const char *pcFmt, ...)
{
    // One byte of the area is kept for the terminating zero.
    if (pcText == nullptr || pcFmt == nullptr || ulCurLen >= ZAN_INNERDATA_TEXT_MAX - 1u) {
        return 0;
    }
    const size_t room = ZAN_INNERDATA_TEXT_MAX - ulCurLen;
    va_list ap;
    va_start(ap, pcFmt);
    const int n = std::vsnprintf(pcText + ulCurLen, room, pcFmt, ap);
    va_end(ap);
    if (n <= 0) {
        pcText[ulCurLen] = '\0';
        return 0;
    }
    return static_cast<uint32_t>(static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room - 1u);
}

uint32_t CLI_AddRec(ZAN_CLI_CMD_S *pCmd, const void *pRec, uint32_t ulLen, uint32_t ulType)
{
    (void)ulType;
    host::CliResult *res = W().cli.current;
    if (res == nullptr || pCmd == nullptr || pRec == nullptr) {
        host::Fault("CLI_AddRec outside a command or without record");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::CliAddRec)) {
        return 1;
    }
    const uint8_t *p = static_cast<const uint8_t *>(pRec);
    res->records.emplace_back(p, p + ulLen);
    return 0;
}

uint32_t CLI_AddOptionData(ZAN_CLI_CMD_S *pCmd, const void *pData, uint32_t ulLen)
{
    (void)pData;
    (void)ulLen;
    host::CliResult *res = W().cli.current;
    if (res == nullptr || pCmd == nullptr) {
        host::Fault("CLI_AddOptionData outside a command");
        return 0;
    }
    res->optionDataCalls++;
    return 0;
}

uint32_t CLI_SetRetCode(uint32_t ulCmdId, uint32_t ulValue, uint32_t ulCode)
{
    (void)ulCmdId;
    (void)ulValue;
    (void)ulCode;
    host::CliResult *res = W().cli.current;
    if (res == nullptr) {
        host::Fault("CLI_SetRetCode outside a command");
        return 0;
    }
    if (host::ShouldFail(host::FailKind::CliRetCode)) {
        return 1;
    }
    res->retCodeCalls++;
    return 0;
}

}  // extern "C"
