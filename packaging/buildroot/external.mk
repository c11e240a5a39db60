include $(sort $(wildcard $(BR2_EXTERNAL_KELO_UTILS_PATH)/*/*.mk))
