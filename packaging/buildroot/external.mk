include $(sort $(wildcard $(BR2_EXTERNAL_KELVO_PATH)/package/*/*.mk))
