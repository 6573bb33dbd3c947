#include "manager/store/postgres/schema.h"

#include "bx/bx.h"

#include <array>

namespace bxm {

namespace {

constexpr const char* kTables = R"sql(
CREATE TABLE manager (
  format int NOT NULL,
  command_server boolean NOT NULL DEFAULT true,
  gets_wait boolean NOT NULL DEFAULT true,
  created timestamptz NOT NULL DEFAULT now());
INSERT INTO manager (format) VALUES (1);

CREATE TABLE queue (
  id serial PRIMARY KEY,
  name text COLLATE "C" NOT NULL UNIQUE,
  cluster text NOT NULL,
  max_depth int NOT NULL,
  max_length int NOT NULL,
  persistence int NOT NULL,
  created timestamptz NOT NULL DEFAULT now(),
  altered timestamptz NOT NULL DEFAULT now(),
  version int NOT NULL DEFAULT 1);

-- priorities: the bits of those that were ever put; longest: no message has more bytes of data
CREATE TABLE segment (
  queue int NOT NULL,
  number int NOT NULL,
  place int NOT NULL,
  priorities int NOT NULL DEFAULT 0,
  longest int NOT NULL DEFAULT 0,
  PRIMARY KEY (queue, number));

CREATE TABLE floor (
  queue int NOT NULL,
  number int NOT NULL,
  priority int NOT NULL,
  sequence bigint NOT NULL,
  PRIMARY KEY (queue, number, priority));

CREATE TABLE deleted (queue int NOT NULL, at timestamptz NOT NULL DEFAULT now());

CREATE SEQUENCE unit_number;

CREATE TABLE outcome_0 (unit bigint NOT NULL);
CREATE TABLE outcome_1 (unit bigint NOT NULL);
CREATE TABLE outcome_2 (unit bigint NOT NULL);
)sql";

constexpr const char* kFunctions = R"sql(
CREATE FUNCTION lock_class(relation regclass) RETURNS int LANGUAGE sql IMMUTABLE AS
$$ SELECT relation::oid::bigint::bit(32)::int $$;

CREATE FUNCTION clock_ms() RETURNS bigint LANGUAGE sql STABLE AS
$$ SELECT (extract(epoch FROM statement_timestamp()) * 1000)::bigint $$;

CREATE FUNCTION make_place(queue int, place int) RETURNS void LANGUAGE plpgsql AS $$
DECLARE name text := format('messages_%s_%s', queue, place);
BEGIN
  EXECUTE format('CREATE TABLE IF NOT EXISTS %I (priority smallint NOT NULL,
    sequence bigint NOT NULL, expires bigint, stored bytea NOT NULL,
    PRIMARY KEY (priority, sequence))', name);
  EXECUTE format('ALTER TABLE %I ALTER COLUMN stored SET STORAGE EXTERNAL', name);
  EXECUTE format('CREATE INDEX IF NOT EXISTS %I ON %I (expires) WHERE expires IS NOT NULL',
    name || '_expires', name);
  PERFORM apply_access(NULL, name);
END $$;

CREATE FUNCTION create_queue(name text, cluster text, max_depth int, max_length int,
    persistence int) RETURNS int LANGUAGE plpgsql AS $$
DECLARE made int;
BEGIN
  INSERT INTO queue (name, cluster, max_depth, max_length, persistence)
    VALUES ($1, $2, $3, $4, $5) ON CONFLICT DO NOTHING RETURNING id INTO made;
  IF made IS NULL THEN RETURN NULL; END IF;
  EXECUTE format('CREATE SEQUENCE %I', 'returned_' || made);
  PERFORM nextval(('returned_' || made)::regclass); -- the first does not change what it shows
  PERFORM apply_access(NULL, 'returned_' || made);
  PERFORM make_place(made, 0);
  INSERT INTO segment (queue, number, place) VALUES (made, 1, 0);
  RETURN made;
END $$;

CREATE FUNCTION delete_queue(queue int) RETURNS void LANGUAGE sql AS $$
  INSERT INTO deleted VALUES ($1);
  DELETE FROM segment s WHERE s.queue = $1;
  DELETE FROM floor f WHERE f.queue = $1;
  DELETE FROM queue q WHERE q.id = $1;
$$;

CREATE FUNCTION switch_command_server(runs boolean) RETURNS void LANGUAGE sql AS
$$ UPDATE manager SET command_server = runs $$;

-- Who waits for one of the queues is told. Nobody waits as long as the lock is to be had.
CREATE FUNCTION wake(queues int[]) RETURNS void LANGUAGE plpgsql AS $$
DECLARE class int := lock_class('segment'); id int;
BEGIN
  FOREACH id IN ARRAY queues LOOP
    IF NOT pg_try_advisory_xact_lock(class, id) THEN
      PERFORM pg_notify('bxm_' || class || '_' || id, '');
    END IF;
  END LOOP;
END $$;

CREATE FUNCTION start_wait(queue int) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
  EXECUTE format('LISTEN %I', 'bxm_' || lock_class('segment') || '_' || queue);
  PERFORM pg_advisory_lock_shared(lock_class('segment'), queue);
END $$;

CREATE FUNCTION give_back(queues int[]) RETURNS void LANGUAGE plpgsql AS $$
DECLARE id int;
BEGIN
  FOREACH id IN ARRAY queues LOOP
    PERFORM nextval(('returned_' || id)::regclass);
  END LOOP;
  PERFORM wake(queues);
EXCEPTION WHEN undefined_table THEN NULL; -- of a queue that was deleted
END $$;

-- Begins the commit of puts to some queues, in the order of their ids: until it has ended none of
-- them is deleted, and none gets a new segment. unit is a number of nobody else's: where it stands
-- later the commit was done.
CREATE FUNCTION begin_commit(queues int[], unit bigint) RETURNS void LANGUAGE plpgsql AS $$
DECLARE class int := lock_class('queue'); id int; last bigint;
BEGIN
  FOREACH id IN ARRAY queues LOOP
    PERFORM pg_advisory_xact_lock_shared(class, id);
  END LOOP;
  SELECT last_value INTO last FROM unit_number;
  PERFORM pg_advisory_xact_lock_shared(lock_class('unit_number'), (last & 2147483647)::int);
  CASE extract(epoch FROM now())::bigint / 600 % 3
    WHEN 0 THEN INSERT INTO outcome_0 VALUES (unit);
    WHEN 1 THEN INSERT INTO outcome_1 VALUES (unit);
    ELSE INSERT INTO outcome_2 VALUES (unit);
  END CASE;
END $$;

-- Whether a transaction that is over was committed.
CREATE FUNCTION was_committed(unit bigint) RETURNS boolean LANGUAGE sql AS $$
  SELECT EXISTS (SELECT FROM outcome_0 o WHERE o.unit = $1 UNION ALL SELECT FROM outcome_1 o
    WHERE o.unit = $1 UNION ALL SELECT FROM outcome_2 o WHERE o.unit = $1) $$;

-- Where messages get longer and longer the step is a large one: each makes all sessions read anew.
CREATE FUNCTION widen(queue int, number int, priorities int, longest int) RETURNS void
    LANGUAGE sql AS $$
  UPDATE segment s SET priorities = s.priorities | $3,
      longest = CASE WHEN $4 <= s.longest THEN s.longest
        ELSE greatest($4, least(s.longest + s.longest / 2, q.max_length)) END
    FROM queue q WHERE s.queue = $1 AND s.number = $2 AND q.id = $1;
  UPDATE queue q SET version = q.version + 1 WHERE q.id = $1;
$$;

-- Below this no commit that is not to be seen yet has a number.
CREATE FUNCTION settled_below() RETURNS bigint LANGUAGE plpgsql AS $$
DECLARE last bigint; least bigint;
BEGIN
  SELECT last_value INTO last FROM unit_number;
  SELECT min(objid::bigint) INTO least FROM pg_locks
    WHERE locktype = 'advisory' AND objsubid = 2 AND classid = 'unit_number'::regclass::oid
      AND database = (SELECT d.oid FROM pg_database d WHERE d.datname = current_database());
  -- What is held are the lower 31 bits of a number not far below the last.
  RETURN least(last, last - ((last - least) & 2147483647)) + 1;
END $$;

-- After this no more is put into the segment: the next one takes it. Does nothing while commits to
-- the queue go on for long.
CREATE FUNCTION seal(queue int, number int) RETURNS boolean LANGUAGE plpgsql AS $$
DECLARE free int;
BEGIN
  SET LOCAL lock_timeout = '50ms';
  PERFORM pg_advisory_xact_lock(lock_class('queue'), $1);
  IF $2 <> (SELECT max(s.number) FROM segment s WHERE s.queue = $1) THEN RETURN true; END IF;
  SELECT min(p) INTO free FROM generate_series(0, (SELECT count(*)::int FROM segment s WHERE s.queue = $1)) g(p)
    WHERE NOT EXISTS (SELECT FROM segment s WHERE s.queue = $1 AND s.place = p);
  PERFORM make_place($1, free);
  INSERT INTO segment (queue, number, place) VALUES ($1, $2 + 1, free);
  UPDATE queue q SET version = q.version + 1 WHERE q.id = $1;
  RETURN true;
EXCEPTION WHEN lock_not_available THEN RETURN false;
END $$;

-- The space of a sealed segment that is empty, unless somebody still looks at it.
CREATE FUNCTION free_segment(queue int, number int) RETURNS boolean LANGUAGE plpgsql AS $$
DECLARE name text; left_over boolean;
BEGIN
  SELECT format('messages_%s_%s', $1, s.place) INTO name FROM segment s
    WHERE s.queue = $1 AND s.number = $2 AND s.number < (SELECT max(n.number) FROM segment n WHERE n.queue = $1);
  IF name IS NULL THEN RETURN false; END IF;
  EXECUTE format('LOCK TABLE %I IN ACCESS EXCLUSIVE MODE NOWAIT', name);
  EXECUTE format('SELECT EXISTS (SELECT FROM %I)', name) INTO left_over;
  IF left_over THEN RETURN false; END IF;
  DELETE FROM segment s WHERE s.queue = $1 AND s.number = $2;
  IF NOT FOUND THEN RETURN false; END IF;
  EXECUTE format('TRUNCATE %I', name);
  DELETE FROM floor f WHERE f.queue = $1 AND f.number = $2;
  UPDATE queue q SET version = q.version + 1 WHERE q.id = $1;
  RETURN true;
EXCEPTION WHEN lock_not_available THEN RETURN false;
END $$;

-- The space of queues that were deleted at once, and their tables after a minute, when nobody's
-- statements name them any more; unless somebody still looks at them.
CREATE FUNCTION drop_deleted() RETURNS void LANGUAGE plpgsql AS $$
DECLARE each record; old boolean;
BEGIN
  FOR each IN SELECT c.relname, c.relkind, d.queue, d.at < now() - interval '1 minute' AS old
      FROM deleted d JOIN pg_class c ON c.relname ~ ('^(messages|returned)_' || d.queue || '(_[0-9]+)?$')
      WHERE c.relnamespace = (SELECT relnamespace FROM pg_class WHERE oid = 'queue'::regclass)
        AND c.relkind IN ('r', 'S') LOOP
    BEGIN
      IF each.relkind = 'S' THEN
        IF each.old THEN EXECUTE format('DROP SEQUENCE %I', each.relname); END IF;
      ELSIF each.old OR pg_table_size(each.relname::regclass) > 8192 THEN
        EXECUTE format('LOCK TABLE %I IN ACCESS EXCLUSIVE MODE NOWAIT', each.relname);
        EXECUTE format(CASE WHEN each.old THEN 'DROP TABLE %I' ELSE 'TRUNCATE %I' END, each.relname);
      END IF;
    EXCEPTION WHEN lock_not_available OR undefined_table THEN NULL;
    END;
  END LOOP;
  DELETE FROM deleted d WHERE NOT EXISTS (SELECT FROM pg_class c
    WHERE c.relnamespace = (SELECT relnamespace FROM pg_class WHERE oid = 'queue'::regclass)
      AND c.relname ~ ('^(messages|returned)_' || d.queue || '(_[0-9]+)?$'));
END $$;

-- What nobody needs any more: deleted queues, and the outcomes of ten to twenty minutes ago.
CREATE FUNCTION tidy_up() RETURNS void LANGUAGE plpgsql AS $$
DECLARE name text := 'outcome_' || (extract(epoch FROM now())::bigint / 600 + 1) % 3;
BEGIN
  IF EXISTS (SELECT FROM deleted) THEN PERFORM drop_deleted(); END IF;
  IF pg_relation_size(name::regclass) > 0 THEN
    EXECUTE format('LOCK TABLE %I IN ACCESS EXCLUSIVE MODE NOWAIT', name);
    EXECUTE format('TRUNCATE %I', name);
  END IF;
EXCEPTION WHEN lock_not_available THEN NULL;
END $$;
)sql";

/// Whoever made the schema may do everything. Others may what they were granted, by tables and
/// functions: with psql, too, they can do no more than that.
constexpr const char* kAccess = R"sql(
CREATE TABLE access (role name NOT NULL, may text NOT NULL, PRIMARY KEY (role, may));

-- Grants what the table says: to one role or all, on one relation or all.
CREATE FUNCTION apply_access(one_role name, one_relation name) RETURNS void LANGUAGE plpgsql AS $$
DECLARE each record; rights text;
BEGIN
  FOR each IN SELECT a.role, a.may, c.relname AS name, c.relname ~ '^messages' AS is_messages
      FROM access a, pg_class c
      WHERE c.relnamespace = (SELECT relnamespace FROM pg_class WHERE oid = 'queue'::regclass)
        AND (c.relname ~ '^messages_[0-9]+_[0-9]+$' OR c.relname ~ '^returned_[0-9]+$')
        AND a.role = coalesce(one_role, a.role) AND c.relname = coalesce(one_relation, c.relname) LOOP
    rights := CASE
      WHEN each.is_messages THEN CASE each.may
        WHEN 'put' THEN 'INSERT, SELECT (priority, sequence, expires)'
        WHEN 'get' THEN 'SELECT, DELETE, UPDATE (expires)' -- what a lock of a row takes
        WHEN 'browse' THEN 'SELECT'
        ELSE 'SELECT (priority, sequence, expires)' END
      WHEN each.may = 'get' THEN 'SELECT' END;
    IF rights IS NOT NULL THEN
      EXECUTE format('GRANT %s ON %I TO %I', rights, each.name, each.role);
    END IF;
  END LOOP;
END $$;

CREATE FUNCTION grant_access(role name, may text) RETURNS void LANGUAGE plpgsql AS $$
DECLARE schema name := current_schema(); f text;
  functions text[] := ARRAY['lock_class', 'clock_ms', 'wake', 'start_wait', 'tidy_up',
    'message_data', 'first_line', 'messages_of', 'depth_of'] || CASE may
      WHEN 'put' THEN ARRAY['begin_commit', 'was_committed', 'widen', 'seal']
      WHEN 'get' THEN ARRAY['give_back', 'free_segment', 'settled_below']
      WHEN 'admin' THEN ARRAY['create_queue', 'delete_queue', 'switch_command_server']
      ELSE '{}' END;
BEGIN
  INSERT INTO access VALUES (role, may) ON CONFLICT DO NOTHING;
  EXECUTE format('GRANT USAGE ON SCHEMA %I TO %I', schema, role);
  EXECUTE format('GRANT SELECT ON manager, queue, segment, floor, queues TO %I', role);
  IF may = 'put' THEN EXECUTE format('GRANT USAGE ON SEQUENCE unit_number TO %I', role); END IF;
  IF may = 'get' THEN EXECUTE format('GRANT SELECT ON SEQUENCE unit_number TO %I', role);
    EXECUTE format('GRANT INSERT, UPDATE ON floor TO %I', role); END IF;
  FOREACH f IN ARRAY functions LOOP
    EXECUTE format('GRANT EXECUTE ON FUNCTION %I TO %I', f, role);
  END LOOP;
  PERFORM apply_access(role, NULL);
END $$;

CREATE FUNCTION revoke_access(role name) RETURNS void LANGUAGE plpgsql AS $$
DECLARE schema name := current_schema(); kind text;
BEGIN
  DELETE FROM access a WHERE a.role = $1;
  FOREACH kind IN ARRAY ARRAY['TABLES', 'SEQUENCES', 'FUNCTIONS'] LOOP
    EXECUTE format('REVOKE ALL ON ALL %s IN SCHEMA %I FROM %I', kind, schema, role);
  END LOOP;
  EXECUTE format('REVOKE ALL ON SCHEMA %I FROM %I', schema, role);
END $$;

DO $$
DECLARE f text;
BEGIN
  EXECUTE format('REVOKE EXECUTE ON ALL FUNCTIONS IN SCHEMA %I FROM PUBLIC', current_schema());
  -- These do what their callers may not, and nothing but that.
  FOREACH f IN ARRAY ARRAY['create_queue', 'delete_queue', 'switch_command_server', 'give_back',
      'begin_commit', 'was_committed', 'widen', 'seal', 'free_segment', 'tidy_up'] LOOP
    EXECUTE format('ALTER FUNCTION %I SECURITY DEFINER SET search_path = %I, pg_temp', f,
      current_schema());
  END LOOP;
END $$;
)sql";

/// For who looks with psql: what a message holds as text, its first line.
constexpr const char* kViews = R"sql(
CREATE FUNCTION message_data(stored bytea) RETURNS bytea LANGUAGE sql IMMUTABLE AS $$
  SELECT substring(stored FROM 12 + CASE WHEN f & 1 > 0 THEN 8 ELSE 0 END
    + CASE WHEN f & 2 > 0 THEN 16 ELSE 0 END + CASE WHEN f & 4 > 0 THEN 24 ELSE 0 END
    + CASE WHEN f & 8 > 0 THEN 24 ELSE 0 END + CASE WHEN f & 32 > 0 THEN 8 ELSE 0 END
    + CASE WHEN f & 128 > 0 THEN 364 ELSE 0 END) FROM (SELECT get_byte(stored, 1)) AS flags(f) $$;

CREATE FUNCTION first_line(stored bytea) RETURNS text LANGUAGE plpgsql IMMUTABLE AS $$
BEGIN
  RETURN split_part(convert_from(substring(message_data(stored) FROM 1 FOR 200), 'UTF8'), E'\n', 1);
EXCEPTION WHEN OTHERS THEN
  RETURN encode(substring(message_data(stored) FROM 1 FOR 50), 'hex');
END $$;

CREATE FUNCTION messages_of(queue_name text) RETURNS TABLE (priority smallint, sequence bigint,
    expires timestamptz, size int, line text) LANGUAGE plpgsql STABLE AS $$
DECLARE each record;
BEGIN
  FOR each IN SELECT format('messages_%s_%s', q.id, s.place) AS name FROM queue q
      JOIN segment s ON s.queue = q.id WHERE q.name = queue_name ORDER BY s.number LOOP
    RETURN QUERY EXECUTE format('SELECT priority, sequence, to_timestamp(expires / 1000.0),
      octet_length(message_data(stored)), first_line(stored) FROM %I
      ORDER BY priority DESC, sequence', each.name);
  END LOOP;
END $$;

CREATE FUNCTION depth_of(queue_name text) RETURNS bigint LANGUAGE plpgsql STABLE AS $$
DECLARE each record; part bigint; depth bigint := 0;
BEGIN
  FOR each IN SELECT format('messages_%s_%s', q.id, s.place) AS name FROM queue q
      JOIN segment s ON s.queue = q.id WHERE q.name = queue_name LOOP
    EXECUTE format('SELECT count(*) FROM %I WHERE expires IS NULL OR expires > clock_ms()',
      each.name) INTO part;
    depth := depth + part;
  END LOOP;
  RETURN depth;
END $$;

CREATE VIEW queues AS SELECT name, depth_of(name) AS depth, max_depth, max_length, created, altered
  FROM queue ORDER BY name;

DO $$
BEGIN -- whoever looks need not set the path
  EXECUTE format('ALTER FUNCTION depth_of SET search_path = %1$I, pg_temp;
    ALTER FUNCTION messages_of SET search_path = %1$I, pg_temp', current_schema());
END $$;
)sql";

/// Queues have more attributes, and these can be altered.
constexpr const char* kAttributes = R"sql(
ALTER TABLE queue ADD COLUMN default_priority int NOT NULL DEFAULT 0,
  ADD COLUMN put_inhibited boolean NOT NULL DEFAULT false,
  ADD COLUMN get_inhibited boolean NOT NULL DEFAULT false;

CREATE FUNCTION alter_queue(queue int, max_depth int, max_length int, persistence int,
    default_priority int, put_inhibited boolean, get_inhibited boolean) RETURNS int LANGUAGE sql AS $$
  UPDATE queue q SET max_depth = $2, max_length = $3, persistence = $4, default_priority = $5,
      put_inhibited = $6, get_inhibited = $7, altered = now(), version = q.version + 1
    WHERE q.id = $1 RETURNING q.id;
$$;

ALTER FUNCTION grant_access RENAME TO grant_access_1;
CREATE FUNCTION grant_access(role name, may text) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
  PERFORM grant_access_1(role, may);
  IF may = 'admin' THEN EXECUTE format('GRANT EXECUTE ON FUNCTION alter_queue TO %I', role); END IF;
END $$;

DO $$
DECLARE each record;
BEGIN
  REVOKE EXECUTE ON FUNCTION alter_queue, grant_access FROM PUBLIC;
  EXECUTE format('ALTER FUNCTION alter_queue SECURITY DEFINER SET search_path = %I, pg_temp',
    current_schema());
  FOR each IN SELECT a.role FROM access a WHERE a.may = 'admin' LOOP
    EXECUTE format('GRANT EXECUTE ON FUNCTION alter_queue TO %I', each.role);
  END LOOP;
END $$;

UPDATE manager SET format = 2;
)sql";

std::string quotedIdentifier(const std::string& name) { return '"' + name + '"'; }

/// What makes the tables of a format out of those of the one before; the first out of nothing.
/// What was ever released here stays as it is: a change is a step of its own, which ends with the
/// format that it makes.
const std::array<std::string, kSchemaFormat> kSteps = {
    std::string(kTables) + kFunctions + kViews + kAccess,
    kAttributes,
};

/// Whoever makes or changes a schema does so alone.
constexpr const char* kBeginAlone = "BEGIN; SELECT pg_advisory_xact_lock(1114139984, 1)";

/// Runs the body alone, in one transaction.
template <typename Body>
void alone(Server& server, const Body& body) {
  server.execute(kBeginAlone);
  try {
    body();
    server.execute("COMMIT");
  } catch (const Failure&) {
    if (server.alive()) server.execute("ROLLBACK");
    throw;
  }
}

std::int64_t formatIn(Server& server) {
  return server.runOne("SELECT format FROM manager").number(0, 0);
}

void takeSteps(Server& server, std::int64_t from) {
  for (std::int64_t format = from; format < kSchemaFormat; ++format)
    server.execute(kSteps.at(static_cast<std::size_t>(format)));
}

} // namespace

std::string schemaOf(const std::string& manager) { return "bxm_" + manager; }

void makeSchema(Server& server, const std::string& manager) {
  alone(server, [&] {
    const Reply there = server.runOne("SELECT 1 FROM pg_namespace WHERE nspname = $1::text",
                                      Parameters().add(schemaOf(manager)));
    if (there.rows() != 0) return;
    server.execute("CREATE SCHEMA " + quotedIdentifier(schemaOf(manager)));
    takeSteps(server, 0);
  });
}

void dropSchema(Server& server, const std::string& manager) {
  alone(server, [&] {
    server.execute("DROP SCHEMA IF EXISTS " + quotedIdentifier(schemaOf(manager)) + " CASCADE");
  });
}

bool checkSchema(Server& server, const std::string& manager) {
  const Reply there = server.runOne(
      "SELECT has_schema_privilege(oid, 'USAGE') FROM pg_namespace WHERE nspname = $1::text",
      Parameters().add(schemaOf(manager)));
  if (there.rows() == 0) return false;
  if (there.number(0, 0) == 0)
    throw Failure(BXRC_NOT_AUTHORIZED, "no right to use queue manager " + manager);
  const std::int64_t format = formatIn(server);
  if (format > kSchemaFormat)
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE,
                  "queue manager " + manager + " has format " + std::to_string(format) +
                      " in the database, and this program knows formats up to " +
                      std::to_string(kSchemaFormat) + ": install the newer version");
  if (format < kSchemaFormat) alone(server, [&] { takeSteps(server, formatIn(server)); });
  return true;
}

} // namespace bxm
