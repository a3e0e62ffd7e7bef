-- The files below the folders that were indexed, each with the state in which it was read. A source file that
-- is not an app has no row in "apps".
CREATE TABLE files (
    id INTEGER PRIMARY KEY,
    source INTEGER NOT NULL,     -- sources.id
    path BLOB NOT NULL,          -- absolute, as the system knows it
    size INTEGER NOT NULL,
    modified INTEGER NOT NULL,   -- nanoseconds since 1970, UTC
    inode INTEGER NOT NULL,
    again INTEGER NOT NULL,      -- not 0: to be read again by the next run; 1 as it may have changed meanwhile, 2
                                 --     as the scaled screenshot is missing
    UNIQUE (source, path)
) STRICT;

CREATE TABLE apps (
    id INTEGER PRIMARY KEY,      -- files.id
    File TEXT NOT NULL,          -- files.path for people: bytes that are not UTF-8 became U+FFFD
    Form TEXT,                   -- 'packaged' or 'text'
    error TEXT,                  -- why its metadata cannot be read; the fields are then empty
    sha256 TEXT,                 -- of the file; NULL if readers refuse it
    Name TEXT NOT NULL,
    Summary TEXT NOT NULL,
    Author TEXT NOT NULL,
    Version TEXT NOT NULL,
    Description TEXT NOT NULL,
    ScreenshotMode TEXT NOT NULL,
    KVPKGVersion TEXT NOT NULL,
    MinimumSupportedKORVALRelease TEXT NOT NULL,
    KORVALRelease TEXT NOT NULL,
    Uuid TEXT NOT NULL,
    AppType TEXT NOT NULL,
    minimumOrder INTEGER,        -- MinimumSupportedKORVALRelease as a number: 20241 for R2024a; NULL if it is
    releaseOrder INTEGER,        --     not of that form; the same of KORVALRelease
    screenshotFormat TEXT,       -- NULL if there is no screenshot
    screenshotBytes INTEGER NOT NULL,
    screenshotSha256 TEXT,       -- of the image; pictures.sha256
    errors INTEGER NOT NULL,     -- findings of "qzapp check", by severity; errors > 0 if there is an error
    warnings INTEGER NOT NULL,
    notes INTEGER NOT NULL
) STRICT;

-- The fields that are lists; position counts from 0.
CREATE TABLE RequiredProducts (
    app INTEGER NOT NULL, position INTEGER NOT NULL, value TEXT NOT NULL, PRIMARY KEY (app, position)
) STRICT, WITHOUT ROWID;
CREATE TABLE UserComponents (
    app INTEGER NOT NULL, position INTEGER NOT NULL, value TEXT NOT NULL, PRIMARY KEY (app, position)
) STRICT, WITHOUT ROWID;
CREATE TABLE ImageRelativePaths (
    app INTEGER NOT NULL, position INTEGER NOT NULL, value TEXT NOT NULL, PRIMARY KEY (app, position)
) STRICT, WITHOUT ROWID;

-- What "qzapp check" reports; count is more than 1 for findings that were only counted.
CREATE TABLE findings (
    app INTEGER NOT NULL, position INTEGER NOT NULL, severity TEXT NOT NULL, rule TEXT NOT NULL,
    part TEXT NOT NULL, text TEXT NOT NULL, fix TEXT NOT NULL, count INTEGER NOT NULL,
    PRIMARY KEY (app, position)
) STRICT, WITHOUT ROWID;

-- Scaled screenshots, each once, by the hash of the image in the app: a PNG or JPEG file that fits into 480 by
-- 360 pixels, and the size in pixels before and after. An image that cannot be scaled has a reason instead.
CREATE TABLE pictures (
    sha256 TEXT PRIMARY KEY, mediaType TEXT, bytes BLOB, reason TEXT,
    width INTEGER NOT NULL, height INTEGER NOT NULL,
    originalWidth INTEGER NOT NULL, originalHeight INTEGER NOT NULL
) STRICT;

-- Row 1 is this catalogue; the others were merged into it. updated: nanoseconds since 1970, UTC.
CREATE TABLE sources (
    id INTEGER PRIMARY KEY, uuid TEXT NOT NULL UNIQUE, label TEXT NOT NULL, updated INTEGER NOT NULL
) STRICT;
-- The folders that were indexed, and when that was finished.
CREATE TABLE folders (
    source INTEGER NOT NULL, path BLOB NOT NULL, indexed INTEGER NOT NULL, PRIMARY KEY (source, path)
) STRICT, WITHOUT ROWID;

-- For duplicates.
CREATE INDEX apps_by_uuid ON apps (Uuid COLLATE NOCASE);
CREATE INDEX apps_by_sha256 ON apps (sha256);

-- The full text, for SQLite only; rowid is apps.id. Stem is the name of the file without its extension.
CREATE VIRTUAL TABLE words USING fts5 (
    Name, Summary, Author, Description, RequiredProducts, UserComponents, ImageRelativePaths, Stem,
    tokenize = "unicode61 remove_diacritics 2"
);
