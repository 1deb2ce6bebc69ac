// The bays of a factory station, and what becomes of the hubs that are plugged into them.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/clock.h"
#include "qzhid/station_bay.h"
#include "qzhid/station_record.h"
#include "qzhid/station_view.h"
#include "qzhid/update_job.h"

namespace qzhid {

/// What a station is to do.
struct StationPlan {
  struct Port {
    std::string name;
    std::string port;  ///< a port id, or a location or the end of it
  };

  std::vector<Port> bays{};  ///< empty: every port is a bay
  bool asksLabel = false;
  std::size_t most = 0;  ///< units; 0: any number
  std::size_t imageSize = 0;
  std::uint16_t imageVersion = 0;
  UnitRecord record{};  ///< what is the same in each
};

/// What a station needs of the world around it.
class StationWorld {
 public:
  virtual ~StationWorld() = default;

  virtual Clock::Time Now() = 0;
  virtual UnitRecord::Date Date() = 0;
  /// Throws Failure.
  virtual std::vector<Hub> Hubs() = 0;
  /// Begins to write a hub. Throws Failure.
  virtual std::unique_ptr<Worker> Start(const Hub& hub) = 0;
  /// Whether tries that fail are not to be repeated.
  virtual bool IsStopWanted() = 0;

  /// Throws Failure unless so many further records can be written.
  virtual void CheckRoom(std::size_t records) = 0;
  /// Takes a record, and writes those that are not written yet. Throws Failure; they are kept.
  virtual void Keep(const UnitRecord& record) = 0;
  virtual void WriteKept() = 0;

  virtual void Show(const StationView& view) = 0;
  virtual void Say(const std::string& line) = 0;
};

/// A hub is one unit from its arrival until it is unplugged. An absence of less than two seconds is
/// no unplugging but a reset (kUnplugged), and while a worker has the hub no absence is one: the
/// worker waits for the hub, and takes what comes back for the same unit unless it cannot be.
class Station {
 public:
  Station(StationWorld& world, const StationPlan& plan);

  /// Hubs may have come or gone.
  void Look();
  /// A label was scanned.
  void TakeLabel(const std::string& label);
  /// No further label can be scanned.
  void EndLabels();
  /// Starts no further unit.
  void Stop();
  /// Does what is due, and shows what has changed.
  void Step();

  /// How long nothing is due, as far as is known now.
  std::chrono::milliseconds Rest();
  /// There is nothing left to do.
  bool IsOver() const;

  const StationView& View() const { return view_; }
  std::vector<const Process*> Sources() const;

 private:
  std::optional<std::vector<Hub>> List();
  Bay* Find(const Hub& hub);
  void See(Bay& bay, const Hub* hub);
  void Arrive(Bay& bay, const Hub& hub);
  void Leave(Bay& bay);
  void LookAt(Clock::Time time);
  void StartNext();
  bool MayStart(Bay& bay);
  bool HasRoom();
  void Start(Bay& bay);
  void Listen(Bay& bay);
  void Take(Bay& bay, const WorkerReport& report);
  void Record(Bay& bay);
  void ShowRecorded();
  void ShowOutcome(Bay& bay);
  void UpdateView();
  std::size_t Count(Bay::Stage stage) const;

  StationWorld& world_;
  const StationPlan& plan_;
  std::vector<std::unique_ptr<Bay>> bays_;
  std::vector<std::string> strangers_;  ///< locations that belong to no bay
  std::string label_;                   ///< of the next hub
  bool hasLabels_ = true;
  bool isListed_ = false;    ///< the hubs could be listed, at least once
  std::string listTrouble_;  ///< why they cannot be listed now
  bool isStopping_ = false;
  std::size_t arrivals_ = 0, started_ = 0;
  std::optional<Clock::Time> lookAt_;
  std::optional<Clock::Time> roomAt_;  ///< when to try the disk again
  std::optional<Clock::Time> firstStart_;
  Clock::Time shownAt_{};
  bool isChanged_ = true;
  StationView view_;
};

}  // namespace qzhid
