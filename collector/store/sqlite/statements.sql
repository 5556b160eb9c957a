-- What the SQLite engine does, statement by statement. Every column of a sample is part of its key, so that a sample
-- that comes again is one and the same row. Times are seconds since 1970-01-01 00:00:00 UTC.

-- name: settings
PRAGMA journal_mode = WAL;
PRAGMA synchronous = FULL;
PRAGMA cache_size = -32768;  -- KiB: a large document is one transaction

-- name: schema
CREATE TABLE participants (
    id INTEGER PRIMARY KEY,
    identifier TEXT NOT NULL UNIQUE,
    application TEXT NOT NULL,
    device TEXT NOT NULL,
    enrolled INTEGER NOT NULL,
    first_contact REAL NOT NULL,
    last_contact REAL NOT NULL,
    documents INTEGER NOT NULL DEFAULT 0,
    repeats INTEGER NOT NULL DEFAULT 0,
    unreadable INTEGER NOT NULL DEFAULT 0,
    clock_skew REAL NOT NULL DEFAULT 0
);
CREATE TABLE ambient_light (
    participant INTEGER NOT NULL,
    time REAL NOT NULL,
    lux REAL NOT NULL,
    channel0 REAL NOT NULL,
    channel1 REAL NOT NULL,
    channel2 REAL NOT NULL,
    channel3 REAL NOT NULL,
    PRIMARY KEY (participant, time, lux, channel0, channel1, channel2, channel3)
) WITHOUT ROWID;
CREATE TABLE distance (
    participant INTEGER NOT NULL,
    time REAL NOT NULL,
    left_eye REAL NOT NULL,
    right_eye REAL NOT NULL,
    PRIMARY KEY (participant, time, left_eye, right_eye)
) WITHOUT ROWID;
CREATE TABLE other_samples (
    participant INTEGER NOT NULL,
    time REAL NOT NULL,
    type TEXT NOT NULL,
    "values" TEXT NOT NULL,
    PRIMARY KEY (participant, time, type, "values")
) WITHOUT ROWID;
CREATE TABLE documents (
    sha256 BLOB PRIMARY KEY,
    participant INTEGER NOT NULL,
    received REAL NOT NULL,
    bytes INTEGER NOT NULL,
    samples INTEGER NOT NULL,
    fresh INTEGER NOT NULL,
    repeats INTEGER NOT NULL DEFAULT 0
) WITHOUT ROWID;
CREATE INDEX documents_of_a_participant ON documents (participant);
CREATE TABLE quarantine (
    id INTEGER PRIMARY KEY,
    participant INTEGER NOT NULL,
    received REAL NOT NULL,
    reason TEXT NOT NULL,
    excerpt TEXT NOT NULL
);
CREATE TABLE tombstones (hash BLOB PRIMARY KEY) WITHOUT ROWID;
CREATE TABLE salt (salt BLOB NOT NULL);
INSERT INTO salt VALUES (randomblob(32));
CREATE TABLE audit (id INTEGER PRIMARY KEY, time REAL NOT NULL, what TEXT NOT NULL);

-- name: known_body
UPDATE documents SET repeats = repeats + 1 WHERE sha256 = ? RETURNING participant, samples;

-- name: count_repeat
UPDATE participants SET repeats = repeats + ?2, last_contact = max(last_contact, ?3)
WHERE id = ?1;

-- name: salt
SELECT salt FROM salt;

-- name: tombstone
SELECT 1 FROM tombstones WHERE hash = ?;

-- name: bury
INSERT OR IGNORE INTO tombstones VALUES (?);

-- name: participant
SELECT id FROM participants WHERE identifier = ?;

-- name: meet
INSERT INTO participants (identifier, application, device, enrolled, first_contact, last_contact)
VALUES (?1, ?2, ?3, ?4, ?5, ?5)
ON CONFLICT (identifier) DO UPDATE SET application = ?2, device = ?3, last_contact = max(last_contact, ?5)
RETURNING id;

-- name: insert_light
INSERT OR IGNORE INTO ambient_light VALUES (?, ?, ?, ?, ?, ?, ?);

-- name: insert_distance
INSERT OR IGNORE INTO distance VALUES (?, ?, ?, ?);

-- name: insert_other
INSERT OR IGNORE INTO other_samples VALUES (?, ?, ?, ?);

-- name: insert_document
INSERT INTO documents (sha256, participant, received, bytes, samples, fresh) VALUES (?, ?, ?, ?, ?, ?);

-- name: insert_unreadable
INSERT INTO quarantine (participant, received, reason, excerpt) VALUES (?, ?, ?, ?);

-- name: count_document
UPDATE participants
SET documents = documents + 1, repeats = repeats + ?2, unreadable = unreadable + ?3, clock_skew = ifnull(?4, clock_skew)
WHERE id = ?1;

-- name: participants
SELECT identifier, application, device, enrolled, first_contact, last_contact, documents, repeats, unreadable, clock_skew, id
FROM participants ORDER BY identifier;

-- name: light_days
SELECT p.identifier, day, samples, least, greatest, span FROM (
    SELECT participant, CAST(time / 86400 AS INTEGER) - (time < 0 AND time % 86400 <> 0) AS day, count(*) AS samples,
           min(lux) AS least, max(lux) AS greatest, max(time) - min(time) AS span
    FROM ambient_light WHERE time >= ? AND time < ? GROUP BY participant, day
) JOIN participants p ON p.id = participant ORDER BY p.identifier, day;

-- name: distance_days
SELECT p.identifier, day, samples, least, greatest, span FROM (
    SELECT participant, CAST(time / 86400 AS INTEGER) - (time < 0 AND time % 86400 <> 0) AS day, count(*) AS samples,
           min(min(left_eye, right_eye)) AS least, max(min(left_eye, right_eye)) AS greatest, max(time) - min(time) AS span
    FROM distance WHERE time >= ? AND time < ? GROUP BY participant, day
) JOIN participants p ON p.id = participant ORDER BY p.identifier, day;

-- name: lux_series
SELECT CAST((time - ?2) / ?4 AS INTEGER) AS bucket, min(lux), max(lux), count(*)
FROM ambient_light WHERE participant = ?1 AND time >= ?2 AND time < ?3 GROUP BY bucket;

-- name: left_eye_series
SELECT CAST((time - ?2) / ?4 AS INTEGER) AS bucket, min(left_eye), max(left_eye), count(*)
FROM distance WHERE participant = ?1 AND time >= ?2 AND time < ?3 GROUP BY bucket;

-- name: right_eye_series
SELECT CAST((time - ?2) / ?4 AS INTEGER) AS bucket, min(right_eye), max(right_eye), count(*)
FROM distance WHERE participant = ?1 AND time >= ?2 AND time < ?3 GROUP BY bucket;

-- name: unreadable
SELECT p.identifier, q.received, q.reason, q.excerpt FROM quarantine q JOIN participants p ON p.id = q.participant
ORDER BY q.id DESC LIMIT ?;

-- name: audit
SELECT time, what FROM audit ORDER BY id DESC LIMIT ?;

-- name: light
SELECT time, lux, channel0, channel1, channel2, channel3 FROM ambient_light
WHERE participant = ? AND time >= ? AND time < ? ORDER BY time;

-- name: distances
SELECT time, left_eye, right_eye FROM distance WHERE participant = ? AND time >= ? AND time < ? ORDER BY time;

-- name: others
SELECT time, type, "values" FROM other_samples WHERE participant = ? AND time >= ? AND time < ? ORDER BY time;

-- name: enrol
UPDATE participants SET enrolled = 1 WHERE identifier = ? RETURNING id;

-- name: erase_light
DELETE FROM ambient_light WHERE participant = ?;

-- name: erase_distances
DELETE FROM distance WHERE participant = ?;

-- name: erase_others
DELETE FROM other_samples WHERE participant = ?;

-- name: erase_documents
DELETE FROM documents WHERE participant = ?;

-- name: erase_unreadable
DELETE FROM quarantine WHERE participant = ?;

-- name: erase_participant
DELETE FROM participants WHERE id = ?;

-- name: begin_erasing
PRAGMA secure_delete = ON;  -- not always: it makes inserts a third dearer

-- name: scrub
PRAGMA secure_delete = OFF;
PRAGMA wal_checkpoint(TRUNCATE);
VACUUM;
PRAGMA wal_checkpoint(TRUNCATE);

-- name: expire_light
DELETE FROM ambient_light WHERE time < ?;

-- name: expire_distances
DELETE FROM distance WHERE time < ?;

-- name: expire_others
DELETE FROM other_samples WHERE time < ?;

-- name: note
INSERT INTO audit (time, what) VALUES (?, ?);
