// The names of the daemon's threads, as the operating system shows them (cut to 15 bytes).
#pragma once

namespace analysis::rokt::common::thread {

constexpr const char* CTRL_RECV_THREAD_NAME = "QTRX_CtrlRecv";     // receiver of a control session
constexpr const char* UPLOADER_THREAD_NAME = "QTRX_Upld";          // followed by "_" and the job id
constexpr const char* CHANNEL_POLL_THREAD_NAME = "QTRX_ChanPoll";  // waits for channels with data
constexpr const char* CHANNEL_POOL_NAME_PREFIX =
    "QTRX_ChanPool_";                                             // followed by the worker's index
constexpr const char* PROF_TIMER_THREAD_NAME = "QTRX_ProfTimer";  // ticks the sampling handlers
constexpr const char* PERF_SCRIPT_THREAD_NAME = "QTRX_PerfScript";  // converts the script's files

// Reserved: no thread of the daemon runs under these.
constexpr const char* SEND_POOL_NAME_PREFIX = "QTRX_SndPool_";
constexpr const char* DEV_TRANS_THREAD_NAME = "QTRX_DevTrans";
constexpr const char* PROF_TASK_THREAD_NAME = "QTRX_ProfTask";
constexpr const char* DEV_THREAD_NAME_PREFIX = "QTRX_Dev_";
constexpr const char* COLLECT_SERVER_THREAD_NAME = "QTRX_CollectSrv";
constexpr const char* TASK_THREAD_NAME = "QTRX_Task";
constexpr const char* HEART_BEAT_THREAD_NAME = "QTRX_HeartBeat";
constexpr const char* UPLOADER_DUMPER_THREAD_NAME = "QTRX_UploaderDumper";
constexpr const char* HDC_DUMPER_THREAD_NAME = "QTRX_HdcDumper";
constexpr const char* RPC_DUMPER_THREAD_NAME = "QTRX_RpcDumper";
constexpr const char* HELPER_DUMPER_THREAD_NAME = "QTRX_HelperDumper";
constexpr const char* DYN_PROF_SERVER_THREAD_NAME = "QTRX_DynProfServer";
constexpr const char* DYN_PROF_CLIENT_THREAD_NAME = "QTRX_DynProfClient";

}  // namespace analysis::rokt::common::thread
