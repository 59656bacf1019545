// QzSysNetwork.cpp: the network component.

#include "qzutil/sys/QzSysNetwork.h"

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"

static QzComponent g_network_component;

void QzSysNetwork::Initialise()
{
    g_network_component.Initialise("QzSysNetwork", QZ_COMPONENT_INFO);
}

void QzSysNetwork::Terminate()
{
    g_network_component.Terminate();
}

int QzSysNetwork::IsInitialised()
{
    return g_network_component.IsInitialised();
}

bool QzSysNetwork::IsWANReachable()
{
    return true;
}
