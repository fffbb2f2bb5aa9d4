// What the Brume client and the local content service say to each other over HTTP, named once for
// both: the routes, the headers, the parameters and JSON members, and the result codes the
// answers carry in "result". The service's own notes (service/README.service.md) describe the
// requests; a change here changes both ends at once.
#pragma once

// Result codes of "result": the values of the client's EResult that the service answers with.
enum EBrumeWireResult
{
	BRUME_RESULT_OK = 1,
	BRUME_RESULT_FAIL = 2,
	BRUME_RESULT_INVALID_PARAM = 8,
	BRUME_RESULT_FILE_NOT_FOUND = 9,
	BRUME_RESULT_ACCESS_DENIED = 15,
};

// Answers of a definition-index reservation.
enum EBrumeReservationResult
{
	BRUME_RESERVE_ACCEPTED = 1,
	BRUME_RESERVE_OCCUPIED = 2,
	BRUME_RESERVE_TAKEN = 3,
	BRUME_RESERVE_TIMED_OUT = 4,
};

// The value of "service" in the status answer that tells a content service from anything else.
inline constexpr char BRUME_SERVICE_NAME[] = "mintyard";

// Routes (a file's routes follow BRUME_ROUTE_FILES with "/<id>").
inline constexpr char BRUME_ROUTE_STATUS[] = "/api/v1/status";
inline constexpr char BRUME_ROUTE_FILES[] = "/api/v1/files";
inline constexpr char BRUME_ROUTE_UGC[] = "/api/v1/ugc";
inline constexpr char BRUME_ROUTE_UPDATE_SUFFIX[] = "/update";
inline constexpr char BRUME_ROUTE_RESERVATIONS[] = "/api/v1/reservations";

// Headers.
inline constexpr char BRUME_HEADER_ACCOUNT[] = "X-Brume-Account";
inline constexpr char BRUME_HEADER_PERSONA[] = "X-Brume-Persona";
inline constexpr char BRUME_HEADER_FILE_NAME[] = "X-Brume-File-Name";
inline constexpr char BRUME_HEADER_OWNER[] = "X-Brume-Owner";
inline constexpr char BRUME_HEADER_APP_ID[] = "X-Brume-App-Id";

// Query parameters of a listing.
inline constexpr char BRUME_PARAM_CREATOR[] = "creator";
inline constexpr char BRUME_PARAM_SHARED[] = "shared";
inline constexpr char BRUME_PARAM_START[] = "start";
inline constexpr char BRUME_PARAM_COUNT[] = "count";
inline constexpr char BRUME_PARAM_REQUIRED[] = "required";
inline constexpr char BRUME_PARAM_EXCLUDED[] = "excluded";

// Parts of an update's multipart body.
inline constexpr char BRUME_PART_META[] = "meta";
inline constexpr char BRUME_PART_CONTENT[] = "content";
inline constexpr char BRUME_PART_PREVIEW[] = "preview";

// Members of the JSON bodies.
#define BRUME_JSON(upper, text) inline constexpr char BRUME_JSON_##upper[] = text
BRUME_JSON(RESULT, "result");
BRUME_JSON(MESSAGE, "message");
BRUME_JSON(START, "start");
BRUME_JSON(TOTAL, "total");
BRUME_JSON(IDS, "ids");
BRUME_JSON(PUBLISHEDFILEID, "publishedfileid");
BRUME_JSON(CREATOR, "creator");
BRUME_JSON(CREATOR_PERSONA, "creator_persona");
BRUME_JSON(APP_ID, "app_id");
BRUME_JSON(TITLE, "title");
BRUME_JSON(FILE_DESCRIPTION, "file_description");
BRUME_JSON(VISIBILITY, "visibility");
BRUME_JSON(FILE_TYPE, "file_type");
BRUME_JSON(TIME_CREATED, "time_created");
BRUME_JSON(TIME_UPDATED, "time_updated");
BRUME_JSON(HCONTENT_FILE, "hcontent_file");
BRUME_JSON(FILENAME, "filename");
BRUME_JSON(FILE_SIZE, "file_size");
BRUME_JSON(HCONTENT_PREVIEW, "hcontent_preview");
BRUME_JSON(PREVIEW_FILE_SIZE, "preview_file_size");
BRUME_JSON(PREVIEW_URL, "preview_url");
BRUME_JSON(BANNED, "banned");
BRUME_JSON(MINTYARD_ACCEPTED, "mintyard_accepted");
BRUME_JSON(TAGS, "tags");
BRUME_JSON(KVTAGS, "kvtags");
BRUME_JSON(KEY, "key");
BRUME_JSON(VALUE, "value");
BRUME_JSON(CHILDREN, "children");
BRUME_JSON(CONTRIBUTORS, "contributors");
BRUME_JSON(VOTE_DATA, "vote_data");
BRUME_JSON(SCORE, "score");
BRUME_JSON(VOTES_UP, "votes_up");
BRUME_JSON(VOTES_DOWN, "votes_down");
BRUME_JSON(CONTENT, "content");
BRUME_JSON(NAME, "name");
BRUME_JSON(HANDLE, "handle");
BRUME_JSON(SIZE, "size");
BRUME_JSON(OWNER, "owner");
BRUME_JSON(SERVICE, "service");
BRUME_JSON(APPID, "appid");
BRUME_JSON(UNIVERSE, "universe");
BRUME_JSON(ACCOUNT, "account");
BRUME_JSON(PERSONA, "persona");
BRUME_JSON(ID, "id");
BRUME_JSON(CHANGES, "changes");
BRUME_JSON(TIME, "time");
BRUME_JSON(NOTE, "note");
BRUME_JSON(CHILD, "child");
BRUME_JSON(REMOVE, "remove");
BRUME_JSON(UP, "up");
BRUME_JSON(INDEX, "index");
BRUME_JSON(PREFAB, "prefab");
BRUME_JSON(USER, "user");
BRUME_JSON(SET_CONTENT, "set_content");
BRUME_JSON(CHANGE_NOTE, "change_note");
#undef BRUME_JSON
