#define VX_FILE_TAG "VcUtils/VcUtils"

#include <VxApi/Logging.h>
#include <VxCommon/VcUtils/VcUtils.h>

using namespace Nucleo::Statuses;
using Nucleo::Status;
using TesselLib::NodeState;
using TesselLib::UpgradeLevel;

namespace
{

constexpr const char* setNodeIpAddress = "VcUtils_SetNodeIpAddress";

Status Apply(TesselLib::Node& node, const TesselLib::IpConfig& ipConfig)
{
    const Status status = node.DiscoverySetIpConfig(ipConfig);
    if (status == OK) {
        char address[46] = "";
        TesselLib::IpAddress_Format(ipConfig.address, address, sizeof address);
        Vx_Debug_Log(Info, "%s: New IP address changed to %s", setNodeIpAddress, address);
        return OK;
    }
    Vx_Debug_Log(Error, "%s: error %d changing IP configuration", setNodeIpAddress, status);
    if (node.Connect() != OK) {
        Vx_Debug_Log(Error, "%s: error re-connecting to node", setNodeIpAddress);
    }
    return status;
}

}  // namespace

Status VcUtils_SetNodeIpAddress(TesselLib::Node* node, const std::uint8_t* mask, const TesselLib::IpConfig* ipConfig)
{
    Status status = ERROR_PARAMETER;
    if (VcUtils_ValidateSubnetMask(mask) && VcUtils_ValidateIpConfig(ipConfig)) {
        if (node->Disconnect() == OK) {
            if (const NodeState state = node->State(); state != NodeState::Online) {
                Vx_Debug_Log(Warning, "%s: IP config not changed. Node is not in ONLINE state (%d)", setNodeIpAddress,
                             state);
                return OK;
            }
        }
        status = Apply(*node, *ipConfig);
    }
    if (status != OK) {
        Vx_Debug_Log(Error, "%s: error %d changing IP address", setNodeIpAddress, status);
    }
    return status;
}

Status VcUtils_ResetNode(TesselLib::Node* node)
{
    if (TesselLib::NodeServer* server = node->LocalServer()) {
        Vx_Debug_Log(Info, "Resetting local node %u", node->Id());
        return server->NotifyShutdown();
    }
    Vx_Debug_Log(Info, "Enqueue reset for remote node %u", node->Id());
    return node->Reset(TesselLib::NodeReset::Application);
}

Status VcUtils_LogTesselUpgradeMessage(const char* prefix, const TesselLib::UpgradeStatus* status)
{
    const auto log = [prefix, status](Vx::Logging::Level level, const char* word) {
        Vx::Logging::Debug(level, VX_HERE, "%s: Upgrade %s - %s", prefix, word, status->message);
    };
    using Vx::Logging::Level;
    switch (status->level) {
        case UpgradeLevel::Info:
            log(Level::Info, "INFO");
            break;
        case UpgradeLevel::Warning:
            log(Level::Warning, "WARNING");
            break;
        case UpgradeLevel::Error:
            log(Level::Error, "ERROR");
            break;
        default:
            log(Level::Info, "UNKNOWN");
            break;
    }
    return OK;
}
