#include "manager/store/postgres/postgres_catalog.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/store/postgres/managers_file.h"
#include "manager/store/postgres/postgres_session.h"
#include "manager/store/postgres/schema.h"

#include <libpq-fe.h>

namespace bxm {

namespace {

std::string placeOf(const ManagersFile& file, const std::string& name) {
  const auto found = file.places.find(name);
  if (found == file.places.end())
    throw Failure(BXRC_Q_MGR_NAME_ERROR,
                  name.empty() ? "no default queue manager in " + file.path
                               : "there is no queue manager " + name + " in " + file.path);
  return found->second;
}

/// Refuses what libpq cannot read, and a password: those belong into its own files.
void checkPlace(const std::string& place) {
  char* error = nullptr;
  PQconninfoOption* options = PQconninfoParse(place.c_str(), &error);
  std::string fault = error ? error : "";
  PQfreemem(error);
  while (!fault.empty() && fault.back() == '\n') fault.pop_back();
  for (const PQconninfoOption* option = options; option && option->keyword; ++option)
    if (option->val && std::string_view(option->keyword) == "password")
      fault = "a password does not belong here: put it into ~/.pgpass, or use a service file";
  PQconninfoFree(options);
  if (!fault.empty()) throw Failure(BXRC_OPTIONS_ERROR, fault);
}

[[noreturn]] void useInstead(const std::string& what) {
  throw Failure(BXRC_OPTION_NOT_VALID_FOR_TYPE,
                "a queue manager in a database has this from the database: " + what);
}

} // namespace

Catalog& postgresCatalog() {
  static PostgresCatalog catalog;
  return catalog;
}

/// The default manager is made where it is missing, so that nobody has to set it up by hand.
std::unique_ptr<StoreSession> PostgresCatalog::connect(std::string_view name) {
  const ManagersFile file = ManagersFile::read();
  const std::string manager = name.empty() ? file.defaultName : std::string(name);
  const std::string place = placeOf(file, manager);
  auto server = std::make_unique<Server>(place, schemaOf(manager));
  if (!checkSchema(*server, manager)) {
    if (!name.empty())
      throw Failure(BXRC_Q_MGR_NOT_AVAILABLE,
                    "queue manager " + manager + " is not in the database: bxadm manager create");
    makeSchema(*server, manager);
  }
  return std::make_unique<PostgresSession>(manager, place, std::move(server));
}

/// What another machine has made in the same database is entered here.
void PostgresCatalog::create(const std::string& name, bool makeDefault, const std::string& place) {
  if (!isName(name) || name == "default")
    throw Failure(BXRC_Q_MGR_NAME_ERROR, notAName(name, "queue manager"));
  checkPlace(place);
  const ManagersFile file = ManagersFile::read();
  const auto known = file.places.find(name);
  if (known != file.places.end() && known->second != place)
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
  Server server(place, schemaOf(name));
  const bool isThere = checkSchema(server, name);
  if (isThere && known != file.places.end())
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
  if (!isThere) makeSchema(server, name);
  if (known == file.places.end())
    file.add(name, place, makeDefault);
  else if (makeDefault)
    file.setDefault(name);
}

void PostgresCatalog::remove(const std::string& name) {
  const ManagersFile file = ManagersFile::read();
  const std::string place = placeOf(file, name);
  Server server(place, schemaOf(name));
  if (checkSchema(server, name)) {
    const Reply free = server.runOne("SELECT pg_try_advisory_lock(lock_class('manager'), 0)");
    if (free.number(0, 0) == 0) throw Failure(BXRC_OBJECT_IN_USE, name + " is in use");
    dropSchema(server, name);
  }
  file.remove(name);
}

bool PostgresCatalog::has(std::string_view name) { return ManagersFile::read().has(name); }

void PostgresCatalog::setDefault(const std::string& name) {
  const ManagersFile file = ManagersFile::read();
  if (!name.empty()) placeOf(file, name);
  file.setDefault(name);
}

void PostgresCatalog::setSettings(const std::string& name, const ManagerSettings& settings) {
  Server server(placeOf(ManagersFile::read(), name), schemaOf(name));
  if (!checkSchema(server, name))
    throw Failure(BXRC_Q_MGR_NAME_ERROR, "queue manager " + name + " is not in the database");
  server.runOne("UPDATE manager SET gets_wait = $1::int <> 0",
                Parameters().add(std::int32_t{settings.syncFull}));
}

void PostgresCatalog::grant(const std::string& name, const std::string& role,
                            const std::string& may) {
  Server server(placeOf(ManagersFile::read(), name), schemaOf(name));
  if (!checkSchema(server, name))
    throw Failure(BXRC_Q_MGR_NAME_ERROR, "queue manager " + name + " is not in the database");
  if (may == "none")
    server.runOne("SELECT revoke_access($1::name)", Parameters().add(role));
  else
    server.runOne("SELECT grant_access($1::name, $2::text)", Parameters().add(role).add(may));
}

std::vector<Catalog::Entry> PostgresCatalog::list() {
  const ManagersFile file = ManagersFile::read();
  std::vector<Entry> entries;
  for (const auto& [name, place] : file.places)
    entries.push_back({name, name == file.defaultName, place});
  return entries;
}

Catalog::Findings PostgresCatalog::check(const std::string&) {
  useInstead("data checksums (initdb --data-checksums) and pg_amcheck");
}

Catalog::Repair PostgresCatalog::repair(const std::string&) {
  useInstead("a standby, or a base backup with its archived log");
}

std::vector<std::string> PostgresCatalog::backup(const std::string& name, const std::string&) {
  const std::string manager = name.empty() ? ManagersFile::read().defaultName : name;
  useInstead("pg_basebackup, or pg_dump --schema '\"" + schemaOf(manager) + "\"'");
}

void PostgresCatalog::restore(const std::string&, const std::string&) {
  useInstead("pg_restore, and then bxadm manager create NAME --store");
}

} // namespace bxm
