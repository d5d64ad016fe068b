-- The tables that morvex_crec and the web application share, for a new installation.
-- Load it as the user "root" into the database "morvex" (UTF-8). Everything is "if not exists", in one transaction:
-- loading it again changes nothing, and a failure leaves nothing half made.
--
-- Types. The daemon reads columns through libdbi, which checks types: what is read as a 64-bit number is bigint, what is
-- read as an int is integer. The daemon sends every column of Calls and ActiveCalls as a quoted text, which the server
-- converts. Times are seconds since 1970.
--
-- Ids. Each id comes from a sequence named <table>_id_seq, as "serial" makes it; the daemon asks for its last value by
-- that name.
--
-- Foreign keys. Calls and ActiveCalls have none: a call must be stored also when its line or a party has no row, be it
-- because the database was away at that moment or because no number is known, and such a link then holds 0 or -1.
-- Lines have none either: a line may be filed before its recorder could be (recorder 0), and a contact is removed when
-- no number points to it, whether or not a line does.

BEGIN;
SET LOCAL client_min_messages = warning;  -- "already exists, skipping" is no news

-- -- settings -------------------------------------------------------------------------------------------------

-- A writer replaces a setting by its name alone, whatever the part, so that names end up unique. No constraint enforces
-- it: a name found in two parts must stay loadable until the next write puts it right.
CREATE TABLE IF NOT EXISTS Configs (
  param text NOT NULL,
  value text NOT NULL DEFAULT '',
  part  text NOT NULL DEFAULT ''  -- 'crec' settings of the recorder, 'o' and 's' the general groups
);
CREATE INDEX IF NOT EXISTS configs_param ON Configs (param);
CREATE INDEX IF NOT EXISTS configs_part ON Configs (part);

-- -- recorders, contacts, numbers, lines --------------------------------------------------------------------------

CREATE TABLE IF NOT EXISTS recorders (
  id       bigserial PRIMARY KEY,
  recid    text NOT NULL UNIQUE,       -- the unit's identifier
  name     text NOT NULL DEFAULT '',   -- as the web side shows it
  rectype  integer NOT NULL DEFAULT 0,  -- 50: card recorder
  options  text NOT NULL DEFAULT ''
);

CREATE TABLE IF NOT EXISTS Contacts (
  id            bigserial PRIMARY KEY,
  name          text NOT NULL DEFAULT '',
  extra         text NOT NULL DEFAULT '',
  parentcontact bigint NOT NULL DEFAULT 0  -- 0: none
);
CREATE INDEX IF NOT EXISTS contacts_name ON Contacts (name);

-- One number may have several rows: deleted ones stay, and a call with that number makes a new one.
CREATE TABLE IF NOT EXISTS CallerIDs (
  id        bigserial PRIMARY KEY,
  callerid  text NOT NULL,
  callerid2 text NOT NULL DEFAULT '',
  islocal   integer NOT NULL DEFAULT 0,  -- 1: a number of this site
  contactid bigint NOT NULL REFERENCES Contacts (id),
  deleted   integer NOT NULL DEFAULT 0   -- not 0: invisible to the look-up by number
);
CREATE INDEX IF NOT EXISTS callerids_callerid ON CallerIDs (callerid text_pattern_ops);  -- for LIKE '0123%' too
CREATE INDEX IF NOT EXISTS callerids_contactid ON CallerIDs (contactid);

CREATE TABLE IF NOT EXISTS Lines (
  id         bigserial PRIMARY KEY,
  contactid  bigint NOT NULL,   -- Contacts, the line's own contact
  recorderid bigint NOT NULL,   -- recorders; 0: not known yet
  linenr     integer NOT NULL,  -- as users see it
  UNIQUE (recorderid, linenr)
);
CREATE INDEX IF NOT EXISTS lines_contactid ON Lines (contactid);

-- -- calls ----------------------------------------------------------------------------------------------------

-- One row per recording that was kept. Each column has a default or may be NULL, as a row names only what is known.
CREATE TABLE IF NOT EXISTS Calls (
  id                serial PRIMARY KEY,
  recorderid        bigint,                      -- recorders
  lineid            bigint,                      -- Lines
  linenr            integer NOT NULL DEFAULT 0,
  direction         integer NOT NULL DEFAULT 0,  -- 0 incoming, 1 outgoing, 2 internal
  startdate         bigint NOT NULL DEFAULT 0,
  duration          integer NOT NULL DEFAULT 0,  -- seconds
  waittime          integer NOT NULL DEFAULT 0,  -- seconds of ringing before the answer
  local             text NOT NULL DEFAULT '',
  localfull         text NOT NULL DEFAULT '',
  localcallerid     bigint,                      -- CallerIDs; 0 when no local number is known
  localcontact      bigint,                      -- Contacts
  remote            text NOT NULL DEFAULT '',
  remotefull        text NOT NULL DEFAULT '',
  remotecallerid    bigint,                      -- CallerIDs
  remotecontact     bigint,                      -- Contacts
  connected         text NOT NULL DEFAULT '',
  connectedcallerid bigint,                      -- CallerIDs
  connectedcontact  bigint,                      -- Contacts
  remoteid          text NOT NULL DEFAULT '',    -- the recording's own name, stem of the file name
  directory         text NOT NULL DEFAULT '',    -- below the recordings root
  filename          text NOT NULL DEFAULT '',
  encoding          integer NOT NULL DEFAULT 0,
  encryption        integer NOT NULL DEFAULT 0,
  isarchived        integer NOT NULL DEFAULT 0,
  isconnected       integer NOT NULL DEFAULT 0,
  processingstate   integer NOT NULL DEFAULT 0,  -- bits
  flags             integer NOT NULL DEFAULT 0,  -- 16: encrypted archive
  source            integer NOT NULL DEFAULT 0,
  category          integer NOT NULL DEFAULT 0,
  notes             text,
  notes2            text,
  notes3            text,
  notes4            text,
  notes5            text,
  callextra         text                         -- keys and values, one line each
);

-- One row per call that runs or whose recording is being finished: the same columns, with ids of its own. So few rows
-- that the primary key is the only index.
CREATE TABLE IF NOT EXISTS ActiveCalls (LIKE Calls INCLUDING DEFAULTS, PRIMARY KEY (id));
CREATE SEQUENCE IF NOT EXISTS activecalls_id_seq AS integer OWNED BY ActiveCalls.id;
ALTER TABLE ActiveCalls ALTER COLUMN id SET DEFAULT nextval('activecalls_id_seq');

-- By party and date, newest first; by number, also by its beginning (text_pattern_ops serves LIKE '0123%'); by line; by
-- date alone; by the name of the recording. The two on ids answer whether a number is still in use. Few calls have a
-- connected party, so that one's index leaves out the rest.
CREATE INDEX IF NOT EXISTS calls_localcontact ON Calls (localcontact, startdate);
CREATE INDEX IF NOT EXISTS calls_remotecontact ON Calls (remotecontact, startdate);
CREATE INDEX IF NOT EXISTS calls_connectedcontact ON Calls (connectedcontact, startdate)
  WHERE connectedcontact IS NOT NULL;
CREATE INDEX IF NOT EXISTS calls_localcallerid ON Calls (localcallerid);
CREATE INDEX IF NOT EXISTS calls_remotecallerid ON Calls (remotecallerid);
CREATE INDEX IF NOT EXISTS calls_local ON Calls (local text_pattern_ops);
CREATE INDEX IF NOT EXISTS calls_remote ON Calls (remote text_pattern_ops);
CREATE INDEX IF NOT EXISTS calls_connected ON Calls (connected text_pattern_ops);
CREATE INDEX IF NOT EXISTS calls_line ON Calls (lineid, startdate);
CREATE INDEX IF NOT EXISTS calls_startdate ON Calls (startdate);
CREATE INDEX IF NOT EXISTS calls_remoteid ON Calls (remoteid);

-- -- presets and accounts, written by the web side alone -------------------------------------------------------------

-- Text that is put into a call's notes when this local number takes part.
CREATE TABLE IF NOT EXISTS IdMap (
  theid  text PRIMARY KEY,  -- the local number
  value  text NOT NULL,
  target text NOT NULL      -- 'notes' or 'notes2'; anything else has no effect
);

-- For a short time calls of one contact are filed under another.
CREATE TABLE IF NOT EXISTS LocalIdMapping (
  srcid      bigint NOT NULL,  -- Contacts, the line's own
  dstid      bigint NOT NULL,  -- Contacts
  updatetime bigint NOT NULL   -- when the entry was made
);
CREATE INDEX IF NOT EXISTS localidmapping_srcid ON LocalIdMapping (srcid);

CREATE TABLE IF NOT EXISTS Users (
  accid   integer PRIMARY KEY,
  rod     integer NOT NULL DEFAULT 0,  -- recording on demand: 1 always, 2 never, else as set for all
  enabled integer NOT NULL DEFAULT 1   -- 1: active account
);

-- Contacts are no foreign key here either: an assignment must not keep an unused contact from being removed.
CREATE TABLE IF NOT EXISTS UserPhones (
  accid     integer NOT NULL REFERENCES Users (accid) ON DELETE CASCADE,
  contactid bigint NOT NULL,  -- Contacts
  PRIMARY KEY (contactid, accid)
);
CREATE INDEX IF NOT EXISTS userphones_accid ON UserPhones (accid);

COMMIT;
