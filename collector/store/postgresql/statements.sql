-- All that the PostgreSQL engine asks of the server (15 or later). Texts are kept by `StorableText`; times are seconds
-- since 1970-01-01 00:00:00 UTC.

-- name: session
SET client_min_messages = warning;
SET lock_timeout = '60s';
SET statement_timeout = 0;
SET jit = off;
-- A commit that a crash can take back is never acknowledged, whatever the role's own setting is.
SELECT set_config('synchronous_commit', 'on', false)
    WHERE current_setting('synchronous_commit') IN ('off', 'local', 'remote_write');

-- name: encoding
SELECT current_setting('server_encoding')

-- Transactions

-- name: begin
BEGIN;
SET LOCAL statement_timeout = '15min'

-- name: begin long
BEGIN

-- name: begin reading
BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY

-- name: before commit
SET LOCAL statement_timeout = 0

-- name: commit
COMMIT

-- name: rollback
ROLLBACK

-- The schema

-- name: lock schema
SELECT pg_advisory_xact_lock(hashtext('tarvex-collector'), 1)

-- name: has schema
SELECT to_regclass('settings') IS NOT NULL

-- name: version
SELECT version::bigint FROM settings

-- name: schema
CREATE TABLE settings (version integer NOT NULL, salt bytea NOT NULL);
INSERT INTO settings VALUES (1, uuid_send(gen_random_uuid()) || uuid_send(gen_random_uuid()));
-- The digest is the identifier's, which may be longer than what an index takes.
CREATE TABLE participants (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    digest bytea NOT NULL UNIQUE,
    identifier text COLLATE "C" NOT NULL,
    application text NOT NULL,
    device text NOT NULL,
    enrolled boolean NOT NULL,
    first_contact double precision NOT NULL,
    last_contact double precision NOT NULL,
    documents bigint NOT NULL DEFAULT 0,
    repeats bigint NOT NULL DEFAULT 0,
    unreadable bigint NOT NULL DEFAULT 0,
    clock_skew double precision NOT NULL DEFAULT 0
);
CREATE TABLE ambient_light (
    participant bigint,
    time double precision,
    lux double precision,
    channel0 double precision,
    channel1 double precision,
    channel2 double precision,
    channel3 double precision,
    PRIMARY KEY (participant, time, lux, channel0, channel1, channel2, channel3)
) PARTITION BY RANGE (time);
CREATE TABLE distance (
    participant bigint,
    time double precision,
    left_eye double precision,
    right_eye double precision,
    PRIMARY KEY (participant, time, left_eye, right_eye)
) PARTITION BY RANGE (time);
-- The digest is that of type and values, for the same reason.
CREATE TABLE other_samples (
    participant bigint,
    time double precision,
    digest bytea,
    type text NOT NULL,
    "values" text NOT NULL,
    PRIMARY KEY (participant, time, digest)
) PARTITION BY RANGE (time);
-- What wrong clocks send has a place of its own. It is not the default partition: the making of any other would have to
-- wait for all who read or write that one.
CREATE TABLE ambient_light_too_early PARTITION OF ambient_light FOR VALUES FROM (MINVALUE) TO (1420070400);
CREATE TABLE ambient_light_too_late PARTITION OF ambient_light FOR VALUES FROM (4133980800) TO (MAXVALUE);
CREATE TABLE distance_too_early PARTITION OF distance FOR VALUES FROM (MINVALUE) TO (1420070400);
CREATE TABLE distance_too_late PARTITION OF distance FOR VALUES FROM (4133980800) TO (MAXVALUE);
CREATE TABLE other_samples_too_early PARTITION OF other_samples FOR VALUES FROM (MINVALUE) TO (1420070400);
CREATE TABLE other_samples_too_late PARTITION OF other_samples FOR VALUES FROM (4133980800) TO (MAXVALUE);
CREATE TABLE documents (
    sha256 bytea PRIMARY KEY,
    participant bigint NOT NULL,
    application text NOT NULL,
    device text NOT NULL,
    received double precision NOT NULL,
    bytes bigint NOT NULL,
    samples bigint NOT NULL,
    fresh bigint NOT NULL,
    repeats bigint NOT NULL DEFAULT 0
);
CREATE INDEX ON documents (participant);
CREATE TABLE quarantine (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    participant bigint NOT NULL,
    received double precision NOT NULL,
    reason text NOT NULL,
    excerpt text NOT NULL
);
CREATE INDEX ON quarantine (participant);
CREATE INDEX ON quarantine (received);
CREATE TABLE tombstones (hash bytea PRIMARY KEY);
CREATE TABLE audit (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    time double precision NOT NULL,
    what text NOT NULL
);
CREATE INDEX ON audit (time)

-- Partitions. Some statements give statements, to be run one after the other.

-- name: lock partitions
SELECT pg_advisory_xact_lock(hashtext('tarvex-collector'), 2)

-- name: lock expiry
SELECT pg_advisory_xact_lock(hashtext('tarvex-collector'), 3)

-- Attaching is let through by all who read and write the other partitions.
-- name: missing months
SELECT format('CREATE TABLE %1$I (LIKE %2$I INCLUDING ALL);'
              'ALTER TABLE %2$I ATTACH PARTITION %1$I FOR VALUES FROM (%3$L) TO (%4$L)',
              name, parent, extract(epoch FROM month), extract(epoch FROM month + interval '1 month'))
    FROM (SELECT parent, month, parent || to_char(month, '_YYYY_MM') AS name
              FROM unnest(ARRAY['ambient_light', 'distance', 'other_samples']) AS parent,
                   unnest($1::text::timestamp[]) AS month) AS wanted
    WHERE to_regclass(quote_ident(name)) IS NULL

-- name: months before
SELECT format('ALTER TABLE %1$s DETACH PARTITION %2$s; ALTER TABLE %2$s RENAME TO %3$I',
              inhparent::regclass, inhrelid::regclass, 'expired_' || inhrelid)
    FROM pg_inherits JOIN pg_class ON pg_class.oid = inhrelid
    WHERE inhparent IN ('ambient_light'::regclass, 'distance'::regclass, 'other_samples'::regclass)
        AND relname ~ '_\d{4}_\d{2}$'
        AND extract(epoch FROM to_date(right(relname, 7), 'YYYY_MM') + interval '1 month') <= $1

-- name: hurry
SET LOCAL lock_timeout = '2s'

-- name: expired months
SELECT format('SELECT count(*) FROM %s', oid::regclass), format('DROP TABLE %s', oid::regclass)
    FROM pg_class
    WHERE relname ~ '^expired_\d+$' AND relkind = 'r' AND relnamespace = current_schema()::regnamespace

-- name: expired light
DELETE FROM ambient_light WHERE time < $1

-- name: expired distances
DELETE FROM distance WHERE time < $1

-- name: expired others
DELETE FROM other_samples WHERE time < $1

-- Receiving

-- name: lock participant
SELECT pg_advisory_xact_lock($1)

-- name: is deleted
SELECT EXISTS (SELECT FROM tombstones, settings WHERE hash = sha256(salt || $1))

-- Written and committed also for a body that is known: what another connection has left visible may be on this machine
-- alone.
-- name: count repeat
WITH known AS (
    UPDATE documents SET repeats = repeats + 1 WHERE sha256 = $1 RETURNING participant, samples
), counted AS (
    UPDATE participants
        SET repeats = repeats + known.samples, last_contact = greatest(last_contact, $2)
        FROM known WHERE id = known.participant
)
SELECT samples FROM known

-- name: participant
WITH made AS (
    INSERT INTO participants (digest, identifier, application, device, enrolled, first_contact, last_contact)
        VALUES ($1, $2, $3, $4, $5, $6, $6)
        ON CONFLICT (digest) DO NOTHING
        RETURNING id
)
SELECT id FROM made UNION ALL SELECT id FROM participants WHERE digest = $1

-- name: known light
SELECT time, lux, channel0, channel1, channel2, channel3
    FROM ambient_light
    WHERE participant = $1 AND time BETWEEN $2 AND $3
    ORDER BY time, lux, channel0, channel1, channel2, channel3

-- name: known distances
SELECT time, left_eye, right_eye
    FROM distance
    WHERE participant = $1 AND time BETWEEN $2 AND $3
    ORDER BY time, left_eye, right_eye

-- name: known others
SELECT time, digest
    FROM other_samples
    WHERE participant = $1 AND time BETWEEN $2 AND $3
    ORDER BY time, digest

-- name: copy light
COPY ambient_light (participant, time, lux, channel0, channel1, channel2, channel3) FROM STDIN (FORMAT binary)

-- name: copy distances
COPY distance (participant, time, left_eye, right_eye) FROM STDIN (FORMAT binary)

-- name: copy others
COPY other_samples (participant, time, digest, type, "values") FROM STDIN (FORMAT binary)

-- Large documents whose samples are in no order: sorted by the server, as only parts of them are in memory.

-- name: patience with sorting
SET LOCAL work_mem = '64MB'

-- name: incoming light
CREATE TEMPORARY TABLE incoming_ambient_light (LIKE ambient_light) ON COMMIT DROP

-- name: copy incoming light
COPY incoming_ambient_light (participant, time, lux, channel0, channel1, channel2, channel3) FROM STDIN (FORMAT binary)

-- name: merge light
INSERT INTO ambient_light (participant, time, lux, channel0, channel1, channel2, channel3)
    SELECT DISTINCT participant, time, lux, channel0, channel1, channel2, channel3
        FROM incoming_ambient_light AS incoming
        WHERE NOT EXISTS (
            SELECT FROM ambient_light AS known
                WHERE known.participant = $1 AND known.time BETWEEN $2 AND $3
                    AND known.time = incoming.time AND known.lux = incoming.lux AND known.channel0 = incoming.channel0 AND known.channel1 = incoming.channel1 AND known.channel2 = incoming.channel2 AND known.channel3 = incoming.channel3
        )
        ORDER BY participant, time, lux, channel0, channel1, channel2, channel3

-- name: incoming distances
CREATE TEMPORARY TABLE incoming_distance (LIKE distance) ON COMMIT DROP

-- name: copy incoming distances
COPY incoming_distance (participant, time, left_eye, right_eye) FROM STDIN (FORMAT binary)

-- name: merge distances
INSERT INTO distance (participant, time, left_eye, right_eye)
    SELECT DISTINCT participant, time, left_eye, right_eye
        FROM incoming_distance AS incoming
        WHERE NOT EXISTS (
            SELECT FROM distance AS known
                WHERE known.participant = $1 AND known.time BETWEEN $2 AND $3
                    AND known.time = incoming.time AND known.left_eye = incoming.left_eye AND known.right_eye = incoming.right_eye
        )
        ORDER BY participant, time, left_eye, right_eye

-- name: incoming others
CREATE TEMPORARY TABLE incoming_other_samples (LIKE other_samples) ON COMMIT DROP

-- name: copy incoming others
COPY incoming_other_samples (participant, time, digest, type, "values") FROM STDIN (FORMAT binary)

-- name: merge others
INSERT INTO other_samples (participant, time, digest, type, "values")
    SELECT DISTINCT participant, time, digest, type, "values"
        FROM incoming_other_samples AS incoming
        WHERE NOT EXISTS (
            SELECT FROM other_samples AS known
                WHERE known.participant = $1 AND known.time BETWEEN $2 AND $3
                    AND known.time = incoming.time AND known.digest = incoming.digest
        )
        ORDER BY participant, time, digest, type, "values"

-- name: copy quarantine
COPY quarantine (participant, received, reason, excerpt) FROM STDIN (FORMAT binary)

-- name: document
INSERT INTO documents (sha256, participant, application, device, received, bytes, samples, fresh)
    VALUES ($1, $2, $3, $4, $5, $6, $7, $8)

-- name: count document
UPDATE participants
    SET application = $2, device = $3, first_contact = least(first_contact, $4),
        last_contact = greatest(last_contact, $4), documents = documents + 1, repeats = repeats + $5,
        unreadable = unreadable + $6, clock_skew = CASE WHEN $7 THEN $8 ELSE clock_skew END
    WHERE id = $1

-- Looking

-- name: participants
SELECT identifier, application, device, enrolled, first_contact, last_contact, documents, repeats, unreadable,
       clock_skew
    FROM participants
    ORDER BY identifier

-- Days of times that no clock shows would not fit into a number.
-- name: days
SELECT identifier, signal, day, samples, least, greatest, seconds
    FROM (
        SELECT participant, 0::bigint AS signal, floor(time / 86400)::bigint AS day, count(*) AS samples,
               min(lux) AS least, max(lux) AS greatest, floor(max(time) - min(time))::bigint AS seconds
            FROM ambient_light
            WHERE time >= greatest($1, -1e18) AND time < least($2, 1e18)
            GROUP BY participant, day
        UNION ALL
        SELECT participant, 1::bigint, floor(time / 86400)::bigint AS day, count(*),
               min(least(left_eye, right_eye)), max(least(left_eye, right_eye)), floor(max(time) - min(time))::bigint
            FROM distance
            WHERE time >= greatest($1, -1e18) AND time < least($2, 1e18)
            GROUP BY participant, day
    ) AS summary JOIN participants ON participants.id = summary.participant
    ORDER BY identifier, signal, day

-- name: series of lux
SELECT width_bucket(time, $2, $3, $4::integer)::bigint - 1 AS bucket, min(lux), max(lux), count(*)
    FROM ambient_light
    WHERE participant = (SELECT id FROM participants WHERE digest = $1) AND time >= $2 AND time < $3
    GROUP BY bucket
    ORDER BY bucket

-- name: series of left eyes
SELECT width_bucket(time, $2, $3, $4::integer)::bigint - 1 AS bucket, min(left_eye), max(left_eye), count(*)
    FROM distance
    WHERE participant = (SELECT id FROM participants WHERE digest = $1) AND time >= $2 AND time < $3
    GROUP BY bucket
    ORDER BY bucket

-- name: series of right eyes
SELECT width_bucket(time, $2, $3, $4::integer)::bigint - 1 AS bucket, min(right_eye), max(right_eye), count(*)
    FROM distance
    WHERE participant = (SELECT id FROM participants WHERE digest = $1) AND time >= $2 AND time < $3
    GROUP BY bucket
    ORDER BY bucket

-- name: unreadable
SELECT identifier, received, reason, excerpt
    FROM quarantine JOIN participants ON participants.id = participant
    ORDER BY received DESC, quarantine.id DESC
    LIMIT $1

-- name: audit
SELECT time, what FROM audit ORDER BY time DESC, id DESC LIMIT $1

-- name: selected
SELECT id, identifier
    FROM participants
    WHERE (enrolled OR $1) AND ($2 OR digest = $3)
    ORDER BY identifier

-- name: visit light
SELECT time, lux, channel0, channel1, channel2, channel3
    FROM ambient_light
    WHERE participant = $1 AND time >= $2 AND time < $3
    ORDER BY time, lux, channel0, channel1, channel2, channel3

-- name: visit distances
SELECT time, left_eye, right_eye
    FROM distance
    WHERE participant = $1 AND time >= $2 AND time < $3
    ORDER BY time, left_eye, right_eye

-- name: visit others
SELECT time, type, "values"
    FROM other_samples
    WHERE participant = $1 AND time >= $2 AND time < $3
    ORDER BY time, digest

-- Changing

-- name: enrol
UPDATE participants SET enrolled = true WHERE digest = $1

-- name: bury
INSERT INTO tombstones SELECT sha256(salt || $1) FROM settings ON CONFLICT DO NOTHING

-- name: find
SELECT id FROM participants WHERE digest = $1

-- Each gives the tables that a VACUUM is due to.
-- name: erase light
WITH gone AS (DELETE FROM ambient_light WHERE participant = $1 RETURNING tableoid)
SELECT DISTINCT tableoid::regclass::text FROM gone

-- name: erase distances
WITH gone AS (DELETE FROM distance WHERE participant = $1 RETURNING tableoid)
SELECT DISTINCT tableoid::regclass::text FROM gone

-- name: erase others
WITH gone AS (DELETE FROM other_samples WHERE participant = $1 RETURNING tableoid)
SELECT DISTINCT tableoid::regclass::text FROM gone

-- name: erase documents
WITH gone AS (DELETE FROM documents WHERE participant = $1 RETURNING tableoid)
SELECT DISTINCT tableoid::regclass::text FROM gone

-- name: erase quarantine
WITH gone AS (DELETE FROM quarantine WHERE participant = $1 RETURNING tableoid)
SELECT DISTINCT tableoid::regclass::text FROM gone

-- name: erase participant
WITH gone AS (DELETE FROM participants WHERE id = $1 RETURNING tableoid)
SELECT DISTINCT tableoid::regclass::text FROM gone

-- name: vacuum
SELECT 'VACUUM (INDEX_CLEANUP ON) ' || $1

-- name: note
INSERT INTO audit (time, what) VALUES ($1, $2)
