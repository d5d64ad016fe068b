// recorder_trace: the bit-stream trace. It writes everything that one channel says into four files, for whoever looks
// for a fault of a line.
// Threads:   RunBitStreamTrace: main. The two callbacks: the driver's threads, only while a trace runs.
#pragma once

#include "shpa3api.h"

class CRecorder;
class TRecorderBoot;

// One trace run, entered by the main loop once everything has drained: no card event is taken while it lasts, queued
// actions go on. Returns when the trace is switched off or the process is to stop.
void RunBitStreamTrace(TRecorderBoot& rBoot, CRecorder& rRecorder);
extern "C" BOOL RecRawDataCallBack(int nCh, DWORD dwLen, LPBYTE pucData, WORD tmpDataDiscardedTimes,
                                   WORD tmpWriteToFileFailedTimes);
extern "C" int DSTCallback(DWORD dwNum, char* szTime, int nCh, BYTE ucProcessType, BYTE ucCmd, WORD wLen, BYTE* pucData,
                           void* pDSTEvent);
