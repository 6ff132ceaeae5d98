#pragma once

struct obs_source_info;

const obs_source_info &coopSourceInfo();
