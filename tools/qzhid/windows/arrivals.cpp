#include "qzhid/arrivals.h"

#include <windows.h>
// After it.
#include <cfgmgr32.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <deque>
#include <iostream>
#include <mutex>
#include <thread>
#include <utility>

#include "qzhid/arrivals_poll.h"
#include "qzhid/windows/waitable.h"

// Some headers do not declare them.
extern "C" {
CMAPI CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER filter, PVOID context,
                                                PCM_NOTIFY_CALLBACK callback,
                                                PHCMNOTIFICATION notification);
CMAPI CONFIGRET WINAPI CM_Unregister_Notification(HCMNOTIFICATION notification);
}

namespace qzhid {

namespace {

// The class of the interfaces of all HID devices.
constexpr GUID kHid = {
    0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};

std::vector<wchar_t> ReadNames() {
  GUID hid = kHid;
  ULONG size = 0;
  if (CM_Get_Device_Interface_List_SizeW(&size, &hid, nullptr,
                                         CM_GET_DEVICE_INTERFACE_LIST_PRESENT) != CR_SUCCESS) {
    return {};
  }
  std::vector<wchar_t> names(size);
  if (CM_Get_Device_Interface_ListW(&hid, nullptr, names.data(), size,
                                    CM_GET_DEVICE_INTERFACE_LIST_PRESENT) != CR_SUCCESS) {
    return {};
  }
  return names;
}

}  // namespace

// Threads of the system and the one that reads lines set the event.
struct Arrivals::Data {
  /// Of the thread that reads lines, which may outlive everything else.
  struct Lines {
    std::mutex mutex{};
    std::deque<std::string> lines{};
    bool hasEnded = true;
    HANDLE event = nullptr;
  };

  bool isVirtual;
  std::atomic<bool> isChanged{false};
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  HCMNOTIFICATION events = nullptr;
  std::optional<ArrivalsPoll<std::vector<wchar_t>>> poll{};
  std::shared_ptr<Lines> input = std::make_shared<Lines>();

  static DWORD CALLBACK Hear(HCMNOTIFICATION, PVOID context, CM_NOTIFY_ACTION,
                             PCM_NOTIFY_EVENT_DATA, DWORD) {
    auto* const data = static_cast<Data*>(context);
    data->isChanged = true;
    SetEvent(data->event);
    return ERROR_SUCCESS;
  }

  void OpenEvents() {
    CM_NOTIFY_FILTER filter{};
    filter.cbSize = sizeof(filter);
    filter.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
    filter.u.DeviceInterface.ClassGuid = kHid;
    if (CM_Register_Notification(&filter, this, Hear, &events) != CR_SUCCESS) events = nullptr;
  }

  // False when there is no further line.
  static bool ReadLine(std::string& line) {
    line.clear();
    for (int c = std::cin.get(); c != EOF; c = std::cin.get()) {
      if (c == '\n') return true;
      if (line.size() < kLongestLine) line += static_cast<char>(c);
    }
    return !line.empty();
  }

  static void ReadLines(const std::shared_ptr<Lines>& input) {
    for (std::string line; ReadLine(line);) {
      const std::lock_guard lock(input->mutex);
      input->lines.push_back(line);
      SetEvent(input->event);
    }
    const std::lock_guard lock(input->mutex);
    input->hasEnded = true;
    SetEvent(input->event);
  }
};

Arrivals::Arrivals(bool isVirtual, bool hasLines) : data_(std::make_unique<Data>()) {
  data_->isVirtual = isVirtual;
  data_->input->event = data_->event;
  if (hasLines) {
    data_->input->hasEnded = false;
    std::thread(Data::ReadLines, data_->input).detach();
  }
  // First the events, so that no change is between them and the names.
  if (!isVirtual) data_->OpenEvents();
  data_->poll.emplace(isVirtual, ReadNames);
}

// The event stays open: the thread that reads lines may still set it.
Arrivals::~Arrivals() {
  if (data_->events != nullptr) CM_Unregister_Notification(data_->events);
}

void Arrivals::Await(const std::vector<const Process*>& processes, std::chrono::milliseconds time) {
  if (data_->isVirtual) time = std::min(time, kVirtualChange);
  Process::AwaitOutput(processes, {Waitable{data_->event}}, time);
  if (data_->poll->HasChanged(data_->events != nullptr, data_->isChanged)) data_->isChanged = true;
}

bool Arrivals::TakeChange() { return data_->isChanged.exchange(false); }

std::optional<std::string> Arrivals::TakeLine() {
  const std::lock_guard lock(data_->input->mutex);
  if (data_->input->lines.empty()) return std::nullopt;
  std::string line = std::move(data_->input->lines.front());
  data_->input->lines.pop_front();
  return line;
}

bool Arrivals::HasEnded() const {
  const std::lock_guard lock(data_->input->mutex);
  return data_->input->hasEnded && data_->input->lines.empty();
}

}  // namespace qzhid
