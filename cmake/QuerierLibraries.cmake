# The library for switch agents: model, machines and congestion monitor.
querier_shared_library(GmpIgmpQuerier FILE IgmpQuerier
  MODULES GmpIgmpQuerierModel GmpIgmpQuerierMachines GmpAttrLogMonitor
  DEPS Querier::GmpPlatform)
