// The commands. Each adds itself to the command line; when it runs, it reports its result through
// the host and throws Failure when it cannot be done.
#pragma once

namespace CLI {
class App;
}

namespace qzhid {

class Host;

void AddListCommand(CLI::App& app, Host& host);
void AddInfoCommand(CLI::App& app, Host& host);
void AddImageCommand(CLI::App& app, Host& host);
void AddUpdateCommand(CLI::App& app, Host& host);
void AddRecoverCommand(CLI::App& app, Host& host);
void AddStationCommand(CLI::App& app, Host& host);
void AddGpioCommand(CLI::App& app, Host& host);
void AddI2cCommand(CLI::App& app, Host& host);
void AddFlashCommand(CLI::App& app, Host& host);
void AddDoctorCommand(CLI::App& app, Host& host);
void AddExplainCommand(CLI::App& app, Host& host);
void AddWorkerCommand(CLI::App& app, Host& host);

}  // namespace qzhid
