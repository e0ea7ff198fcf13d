// The four network administration commands of quorlinadmin.
//
// Messages and the listing go to standard error; the outcome word ("ok", "fail") or a new
// network's id goes to standard output without a line end, for scripts to capture. Records the
// operations return are freed on return.
#ifndef QUORLIN_CLI_COMMANDS_HPP
#define QUORLIN_CLI_COMMANDS_HPP

namespace quorlin {

inline constexpr int CREATE_ATTEMPTS = 5;
inline constexpr unsigned CREATE_RETRY_PAUSE_SECONDS = 10;
inline constexpr char SPARED_NETWORK_NAME[] = "Friends";

// Lists the networks of `type` (0: all) with their members, the first member as the owner.
void cmd_list(int type);
// Creates "<first>_<second>_net_<random>" with the two members; up to 5 attempts, 10 s apart.
void cmd_create(const char* first, const char* second);
// Invites `email` into the network whose id `network_text` begins with.
int cmd_invite(const char* network_text, const char* email);
// Drops every network except the one named exactly "Friends".
int cmd_drop();

// The program's entry: dispatches the command word and returns the exit status.
int quorlinadmin_main(int argc, char** argv);
void print_usage();

}  // namespace quorlin

#endif  // QUORLIN_CLI_COMMANDS_HPP
