#include <Mox/NboAttrLog/Session.h>

#include <gtest/gtest.h>
