#pragma once
// Message records generated from the bus databases are added here by the database index.
