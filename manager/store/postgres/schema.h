#pragma once

#include "manager/store/postgres/server.h"

#include <string>

/// The tables of one manager: a schema of its own in the database.
///
///   manager        one row: the format of all this, and the settings
///   queue          a row for each queue; its version changes with what sessions remember of it
///   segment        the tables in which a queue's messages lie, in their order; the last takes more
///   floor          below which sequence nothing is left, told from session to session
///   messages_Q_S   the messages of queue Q that lie in its place S, by priority and sequence
///   returned_Q     counts how often taken messages were given back
///   unit_number    the order of the commits
///
/// A message's sequence is the number of its commit and its own within that. The views queues and
/// messages are for people.
///
/// Who works at what is told by advisory locks, which end with their owners: those of a table's
/// number and a queue's are held by commits (queue) and by who waits (segment), those of
/// unit_number and a commit number by commits that have numbers above, and those of returned_Q and
/// a count by units of work that will put so many messages.
namespace bxm {

constexpr int kSchemaFormat = 2;

/// The schema that a manager's tables are in.
std::string schemaOf(const std::string& manager);

/// Makes the schema, or does nothing when it is there. Throws Failure.
void makeSchema(Server& server, const std::string& manager);
/// Deletes it with everything in it.
void dropSchema(Server& server, const std::string& manager);

/// Whether the tables are there; those of an older format are made new. Throws Failure: 2059 of a
/// newer format, 2035.
bool checkSchema(Server& server, const std::string& manager);

} // namespace bxm
