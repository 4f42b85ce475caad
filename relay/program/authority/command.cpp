// Makes authorities and exchanges their files.
#include "relay/program/authority/command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <stdexcept>

#include "relay/base/clock.h"
#include "relay/net/private_files.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/program/folder/data_folder.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

// The superuser makes files for the relay's user, whom the folder belongs to.
void give_to_owner_of(const std::string& folder, const std::string& file) {
  struct stat status {};
  if (::geteuid() != 0) return;
  if (::stat(folder.c_str(), &status) != 0 || ::lchown(file.c_str(), status.st_uid, status.st_gid) != 0)
    throw std::runtime_error("cannot give " + file + " to the owner of " + folder + ": " +
                             std::strerror(errno));
}

// A new authority for localhost alone would lock out every machine.
void require_names(const Options& options) {
  if (options.hosts != std::vector<std::string>{"localhost"}) return;
  for (const std::string& file :
       {leaf_files(options.data).certificate, trusted_files(options.data).certificate}) {
    const std::vector<Certificate> chain = read_chain(file);
    if (chain.empty()) continue;
    for (const std::string& name : names_of(chain.front().get())) {
      if (name == "localhost" || name == "127.0.0.1") continue;
      throw std::runtime_error("the relay's certificate is for " + name +
                               "; give all names of the relay with --host, or its settings with --config");
    }
  }
}

// Makes the next authority unless there is one already, which machines may trust. Returns whether it was
// made.
bool make_next(const Options& options) {
  const CertificateFiles next = next_files(options.data);
  if (!fs::exists(next.certificate)) {
    require_names(options);
    write_pair(next, make_authority(options.hosts, wall_seconds()));
    give_to_owner_of(options.data, next.key);
    give_to_owner_of(options.data, next.certificate);
    return true;
  }
  const ChainAndKey pair = read_pair(next);
  for (const std::string& name : names_not_permitted(pair.chain.front(), options.hosts)) {
    throw std::runtime_error("the prepared authority " + next.certificate + " does not permit " + name +
                             "; if no machine trusts it yet, remove it and repeat the command");
  }
  return false;
}

std::string permitted_text(const Options& options) {
  std::string text;
  for (const std::string& name : names_for(options.hosts))
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

void prepare(const Options& options, std::ostream& out) {
  const bool made = make_next(options);
  const std::string file = next_files(options.data).certificate;
  const std::string end = date_text(end_of(read_chain(file).front().get()));
  out << (made ? "prepared: an authority for " + permitted_text(options) : "there is one already") << ", in "
      << file << ", valid until " << end << "\nWhen all machines trust it besides the present "
      << trusted_files(options.data).certificate << ", use it with: vantelink-relay authority renew\n";
}

// Copies a file of the authority before, whatever is in it.
void keep(const std::string& data, const std::string& file, const std::string& kept, unsigned mode) {
  if (!fs::exists(file)) return;
  std::ifstream in(file, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(in), {}};
  if (!in) throw std::runtime_error("cannot read " + file);
  write_durably(kept, content, mode);
  give_to_owner_of(data, kept);
}

CertificateFiles kept_files(const std::string& data) {
  const std::string time = time_for_name();
  std::string name = time;
  const auto files = [&] {
    return CertificateFiles{data + "/relay-cert-before-" + name + ".pem",
                            data + "/relay-key-before-" + name + ".pem"};
  };
  for (int i = 2; fs::exists(files().certificate) || fs::exists(files().key); ++i)
    name = time + '-' + std::to_string(i);
  return files();
}

void renew(const Options& options, std::ostream& out) {
  const CertificateFiles next = next_files(options.data);
  const CertificateFiles trusted = trusted_files(options.data);
  static_cast<void>(make_next(options));
  const CertificateFiles kept = kept_files(options.data);
  keep(options.data, trusted.key, kept.key, 0600);
  keep(options.data, trusted.certificate, kept.certificate, 0644);
  // A cut between the two is completed by complete_renewal().
  rename_durably(next.key, trusted.key);
  rename_durably(next.certificate, trusted.certificate);
  out << "renewed: the authority is in " << trusted.certificate << '\n';
  if (fs::exists(kept.certificate)) out << "The one before is in " << kept.certificate << ".\n";
  out << "Machines and browsers that do not trust " << trusted.certificate
      << " cannot connect from now on; a relay that runs uses it within some seconds.\n";
}

}  // namespace

void authority_command(const Options& options, std::ostream& out) {
  if (!fs::is_directory(options.data))
    throw std::runtime_error("there is no data folder " + options.data + "; name it with --data");
  if (!options.certificate.empty())
    throw std::runtime_error("the relay uses the certificate " + options.certificate +
                             " of --cert, and no authority of its own");
  const DataFolder data(options.data);
  complete_renewal(options.data);
  if (options.step == "prepare") return prepare(options, out);
  renew(options, out);
}

}  // namespace vlk::relay
