// The tables, indexes and triggers of the trail, and how its text index is asked.
#include "relay/storage/trail/tables.h"

#include "relay/storage/trail/chain.h"

namespace vlk::relay {
namespace {

// trail_steps has the ids of rows whose time is before that of the row before them, because the clock was set
// back. Between two such rows the time never falls, so that a time can be found by halving.
constexpr char kTables[] = R"sql(
CREATE TABLE trail(
  id INTEGER PRIMARY KEY, time INTEGER NOT NULL, code TEXT NOT NULL, actor TEXT NOT NULL, machine TEXT NOT NULL,
  address TEXT NOT NULL, session INTEGER, fields TEXT NOT NULL, hash BLOB NOT NULL) STRICT;
CREATE INDEX trail_by_code ON trail(code, id);
CREATE INDEX trail_by_actor ON trail(actor, id);
CREATE INDEX trail_by_machine ON trail(machine, id);
CREATE INDEX trail_by_actor_and_code ON trail(actor, code, id);
CREATE INDEX trail_by_machine_and_code ON trail(machine, code, id);
CREATE TABLE trail_anchor(
  one INTEGER PRIMARY KEY CHECK(one = 1), first_id INTEGER NOT NULL, previous_hash BLOB NOT NULL,
  signature BLOB NOT NULL) STRICT;
CREATE TABLE trail_heads(
  last_id INTEGER PRIMARY KEY, day TEXT NOT NULL, hash BLOB NOT NULL, signature BLOB NOT NULL) STRICT;
CREATE TABLE trail_steps(id INTEGER PRIMARY KEY) STRICT;
)sql";

// The text index is filled by a trigger, so that each writer keeps it complete. It holds no copy of the
// texts.
constexpr char kSqliteIndex[] = R"sql(
CREATE VIEW trail_texts(id, text) AS
  SELECT id, actor || char(10) || address || char(10) || coalesce((
    SELECT group_concat(atom, char(10)) FROM json_tree(fields) WHERE type = 'text'), '') FROM trail;
CREATE VIRTUAL TABLE trail_words USING fts5(
  text, content='trail_texts', content_rowid='id', tokenize='trigram', columnsize=0);
)sql";

constexpr char kSqliteTriggers[] = R"sql(
CREATE TRIGGER trail_inserted AFTER INSERT ON trail BEGIN
  INSERT INTO trail_words(rowid, text) SELECT id, text FROM trail_texts WHERE id = new.id;
END;
CREATE TRIGGER trail_removed BEFORE DELETE ON trail BEGIN
  SELECT raise(ABORT, 'rows of the trail are removed only below its anchor')
    WHERE old.id >= (SELECT first_id FROM trail_anchor);
  INSERT INTO trail_words(trail_words, rowid, text)
    SELECT 'delete', id, text FROM trail_texts WHERE id = old.id;
END;
CREATE TRIGGER trail_changed BEFORE UPDATE ON trail BEGIN
  SELECT raise(ABORT, 'rows of the trail are not changed');
END;
CREATE TRIGGER trail_follows BEFORE INSERT ON trail BEGIN
  SELECT raise(ABORT, 'rows of the trail are added only at its end')
    WHERE new.id <= (SELECT coalesce(max(id), 0) FROM trail)
       OR new.id < (SELECT first_id FROM trail_anchor) OR length(new.hash) <> 32;
END;
CREATE TRIGGER trail_anchor_kept BEFORE UPDATE ON trail_anchor BEGIN
  SELECT raise(ABORT, 'the anchor of the trail only moves forward') WHERE new.first_id < old.first_id;
END;
CREATE TRIGGER trail_anchor_removed BEFORE DELETE ON trail_anchor BEGIN
  SELECT raise(ABORT, 'the anchor of the trail is not removed');
END;
CREATE TRIGGER trail_head_changed BEFORE UPDATE ON trail_heads BEGIN
  SELECT raise(ABORT, 'signed heads are not changed');
END;
CREATE TRIGGER trail_head_removed BEFORE DELETE ON trail_heads BEGIN
  SELECT raise(ABORT, 'signed heads are not removed');
END;
)sql";

constexpr char kPostgresText[] = R"sql(
CREATE FUNCTION trail_text(actor TEXT, address TEXT, fields TEXT) RETURNS TEXT LANGUAGE sql IMMUTABLE PARALLEL SAFE AS $$
  SELECT actor || chr(10) || address || chr(10) || coalesce((
    SELECT string_agg(value #>> '{}', chr(10)) FROM jsonb_path_query(fields::jsonb, 'strict $.**') AS value
    WHERE jsonb_typeof(value) = 'string'), '') $$;
CREATE EXTENSION IF NOT EXISTS pg_trgm;
)sql";

constexpr char kPostgresTriggers[] = R"sql(
CREATE FUNCTION keep_trail() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  IF TG_OP = 'UPDATE' THEN
    RAISE EXCEPTION 'rows of the trail are not changed';
  ELSIF TG_OP = 'DELETE' THEN
    IF OLD.id >= (SELECT first_id FROM trail_anchor) THEN
      RAISE EXCEPTION 'rows of the trail are removed only below its anchor';
    END IF;
    RETURN OLD;
  END IF;
  IF NEW.id <= (SELECT coalesce(max(id), 0) FROM trail)
     OR NEW.id < (SELECT first_id FROM trail_anchor) OR length(NEW.hash) <> 32 THEN
    RAISE EXCEPTION 'rows of the trail are added only at its end';
  END IF;
  RETURN NEW;
END $$;
CREATE TRIGGER trail_kept BEFORE INSERT OR UPDATE OR DELETE ON trail FOR EACH ROW EXECUTE FUNCTION keep_trail();
CREATE FUNCTION keep_trail_anchor() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  IF TG_OP = 'DELETE' THEN
    RAISE EXCEPTION 'the anchor of the trail is not removed';
  ELSIF NEW.first_id < OLD.first_id THEN
    RAISE EXCEPTION 'the anchor of the trail only moves forward';
  END IF;
  RETURN NEW;
END $$;
CREATE TRIGGER trail_anchor_kept BEFORE UPDATE OR DELETE ON trail_anchor FOR EACH ROW EXECUTE FUNCTION keep_trail_anchor();
CREATE FUNCTION keep_trail_head() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  IF TG_OP = 'DELETE' THEN
    RAISE EXCEPTION 'signed heads are not removed';
  END IF;
  RAISE EXCEPTION 'signed heads are not changed';
END $$;
CREATE TRIGGER trail_head_kept BEFORE UPDATE OR DELETE ON trail_heads FOR EACH ROW EXECUTE FUNCTION keep_trail_head();
)sql";

// The extension's schema need not be in the search path.
std::string extension_schema(Database& database) {
  Statement query(database, "SELECT extnamespace::regnamespace FROM pg_extension WHERE extname = 'pg_trgm'");
  if (!query.step()) throw DatabaseError("The extension pg_trgm is missing in the database.");
  return query.text(0);
}

void create_postgres_index(Database& database) {
  database.execute(kPostgresText);
  database.execute(("CREATE INDEX trail_by_text ON trail USING gin(trail_text(actor, address, fields) " +
                    extension_schema(database) + ".gin_trgm_ops)")
                       .c_str());
  database.execute(kPostgresTriggers);
}

// The text as one string of SQLite's query language, in which nothing else has a meaning.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"') result += '"';
    result += c;
  }
  return result + '"';
}

// The text as a pattern of PostgreSQL.
std::string pattern(const std::string& text) {
  std::string result = "%";
  for (const char c : text) {
    if (c == '%' || c == '_' || c == '\\') result += '\\';
    result += c;
  }
  return result + '%';
}

}  // namespace

void create_trail(Database& database) {
  database.define(kTables);
  Statement(database, "INSERT INTO trail_anchor VALUES(1, 1, ?, ?)")
      .bind(Bytes(kTrailHashSize))
      .bind(Bytes())
      .run();
  if (database.dialect() == Dialect::Postgresql) return create_postgres_index(database);
  database.execute(kSqliteIndex);
  database.execute(kSqliteTriggers);
}

std::string text_condition(Dialect dialect) {
  if (dialect == Dialect::Postgresql)
    return "(trail_text(actor, address, fields) ILIKE ? AND id BETWEEN ? AND ?)";
  return "id IN (SELECT rowid FROM trail_words WHERE trail_words MATCH ? AND rowid BETWEEN ? AND ?)";
}

std::string text_pattern(Dialect dialect, const std::string& text) {
  return dialect == Dialect::Postgresql ? pattern(text) : quoted(text);
}

std::string field_text(Dialect dialect, const char* field) {
  const std::string name(field);
  if (dialect == Dialect::Postgresql) return "(fields::jsonb ->> '" + name + "')";
  return "json_extract(fields, '$." + name + "')";
}

}  // namespace vlk::relay
