#pragma once
// The manager owns the applets and the bus receiver, and sits above the services and the
// compile driver. They reach it through this port, which the manager fills when the library
// loads; a port left empty answers as if no applet and no frame existed.

#include <string>

#include "model/keln_types.h"
#include "model/records/ruvo_basic_def.h"

class MpRuvo;

namespace ruvo {

struct ManagerPort {
    MpRuvo* (*findApplet)(const std::string& name) = nullptr;
    int (*startMeasurement)() = nullptr;  // kelnStartup
    int (*stopMeasurement)() = nullptr;   // kelnStop
    void (*resetFirstFrame)() = nullptr;  // initRecvMessage
    bool (*firstFrame)(_KelnCan* out) = nullptr;
    // RuvoManager::createRuvoFuture
    void (*createFuture)(keln_diagnosis_service_s* service, KelnBigMessageData* message, int cycleMs,
                         int count, const std::string& key) = nullptr;
};

void setManagerPort(const ManagerPort& port);

MpRuvo* findApplet(const std::string& name);
int startMeasurement();
int stopMeasurement();
void resetFirstFrame();
bool firstFrame(_KelnCan* out);
void createFuture(keln_diagnosis_service_s* service, KelnBigMessageData* message, int cycleMs, int count,
                  const std::string& key);

}  // namespace ruvo
