#include "qzhid/selector.h"

#include <algorithm>
#include <iterator>

#include "common/texts.h"
#include "qzhid/location.h"

namespace qzhid {

namespace {

// The rest of a text after its beginning, in any letter case; none when it begins otherwise.
std::optional<std::string> After(const std::string& beginning, const std::string& text) {
  if (!Upper(text).starts_with(Upper(beginning))) return std::nullopt;
  return text.substr(beginning.size());
}

bool IsId(const std::string& id, const std::string& wanted) {
  const auto number = tools::ParseHexNumber(wanted);
  return number && IdText(*number) == id;
}

bool AreIds(const Hub& hub, const std::string& wanted) {
  const std::size_t colon = wanted.find(':');
  return colon != std::string::npos && IsId(hub.vid, wanted.substr(0, colon)) &&
         IsId(hub.pid, wanted.substr(colon + 1));
}

std::string NamesOf(const std::vector<Hub>& hubs) {
  std::string names;
  for (const Hub& hub : hubs) names += (names.empty() ? "" : ", ") + hub.Name();
  return names;
}

std::vector<Hub> Matching(const std::vector<Hub>& attached, const std::string& selector) {
  std::vector<Hub> matching;
  std::copy_if(attached.begin(), attached.end(), std::back_inserter(matching),
               [&selector](const Hub& hub) { return IsNamed(hub, selector); });
  if (!matching.empty()) return matching;
  if (attached.empty()) throw NoHub();
  throw Failure(Exit::NoSuchHub, "no hub matches '" + selector + "'", "",
                "attached are: " + NamesOf(attached));
}

const Hub& TheOnly(const std::vector<Hub>& hubs, const std::string& what) {
  if (hubs.size() == 1) return hubs.front();
  throw Failure(Exit::WrongUse, "several hubs " + what, "", "choose one of: " + NamesOf(hubs));
}

const Hub& TheOnlyAttached(const std::vector<Hub>& attached) {
  if (attached.empty()) throw NoHub();
  return TheOnly(attached, "are attached");
}

// Such numbers stay in scripts, where the next process writes another hub.
void WarnOfInstance(Host& host, const Hub& hub, const std::string& selector) {
  if (hub.id.port.empty() || !After("instance:", selector)) return;
  host.Say("'" + selector + "' is good for this process only; in the next one, name this hub " +
           hub.shownId);
}

// A filter names all hubs that it matches, anything else one.
bool IsFilter(const std::string& selector) {
  return After("vid=", selector) || After("pid=", selector);
}

}  // namespace

bool IsNamed(const Hub& hub, const std::string& selector) {
  if (selector.empty()) return false;
  if (const auto number = After("instance:", selector)) {
    return hub.hasNode && *number == std::to_string(hub.instance);
  }
  if (const auto id = After("vid=", selector)) return IsId(hub.vid, *id);
  if (const auto id = After("pid=", selector)) return IsId(hub.pid, *id);
  return selector == hub.userName || hub.id.Is(selector) || AreIds(hub, selector) ||
         IsLocation(hub.Location(), selector);
}

Failure NoHub() {
  return {Exit::NoSuchHub, "no hub is attached", "", "plug one in, or see 'qzhid doctor'"};
}

Hub PickHub(Host& host, const std::optional<std::string>& selector) {
  const std::vector<Hub> attached = ListHubs(host);
  Hub hub = selector ? TheOnly(Matching(attached, *selector), "match '" + *selector + "'")
                     : TheOnlyAttached(attached);
  if (selector) WarnOfInstance(host, hub, *selector);
  if (!hub.isOpenable) throw NotOpenable(hub);
  return hub;
}

std::vector<Hub> PickHubs(Host& host, const std::vector<std::string>& selectors) {
  const std::vector<Hub> attached = ListHubs(host);
  if (selectors.empty()) return {TheOnlyAttached(attached)};
  std::vector<Hub> hubs;
  for (const std::string& selector : selectors) {
    const std::vector<Hub> matching = Matching(attached, selector);
    if (!IsFilter(selector)) {
      WarnOfInstance(host, TheOnly(matching, "match '" + selector + "'"), selector);
    }
    for (const Hub& hub : matching) {
      const bool isNamedTwice = std::any_of(hubs.begin(), hubs.end(), [&hub](const Hub& other) {
        return other.instance == hub.instance && other.locations == hub.locations;
      });
      if (!isNamedTwice) hubs.push_back(hub);
    }
  }
  return hubs;
}

}  // namespace qzhid
