#include "api/proxy_driver.h"

#include "log/msg.h"
#include "transport/hid_transfers.h"
#include "transport/request_cmd.h"

namespace qzhid {

CProxyDriver& CProxyDriver::Instance() {
  static constinit platform::CProcessObject<CProxyDriver> instance;
  return instance.Get();
}

void CProxyDriver::QZ_InitProxyDriver() {
  QZ_UnInitProxyDriver();
  m_pProxy = std::make_unique<CHidProperty>(std::make_unique<CHidTransfers>());
  CRequestCMD::Instance().SetProperty(m_pProxy.get());
  CMsg::Instance().Log(0, "CRequestCMD::QZ_InitProxyDriver", "YvProxy lib built on %s at %s\n",
                       QZ_BUILD_DAY, QZ_BUILD_TIME);
  if (m_pProxy->Init() == 0) {
    CMsg::Instance().Log(3, "QZ_InitProperty", "Init Proxy Driver Fail\n");
  }
}

void CProxyDriver::QZ_UnInitProxyDriver() {
  if (!m_pProxy) return;
  CRequestCMD& request = CRequestCMD::Instance();
  request.Yv_CloseDevice();
  m_pProxy->UnInit();
  request.SetProperty(nullptr);
  CMsg::Instance().Log(0, "CRequestCMD::QZ_UnInitProxyDriver", "Unload Proxy Driver\n");
  m_pProxy.reset();
}

void CProxyDriver::Abandon() noexcept {
  if (m_pProxy.release() != nullptr) CRequestCMD::Instance().SetProperty(nullptr);
}

}  // namespace qzhid
